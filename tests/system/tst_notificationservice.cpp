#include "Clock.h"
#include "FakeNotificationServer.h"
#include "NotificationBackendDBus.h"
#include "NotificationService.h"

#include <QCoro/QCoroTask>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <optional>

namespace {
template <typename T> T await(QCoro::Task<T> task)
{
    return QCoro::waitFor(std::move(task));
}
} // namespace

class TestNotificationService final : public QObject
{
    Q_OBJECT

    QThread m_thread;
    FakeNotificationServer* m_server = nullptr;
    const QString m_name = QStringLiteral("org.tidewell.test.Notifications");
    QDateTime m_now;

    NotificationService& service()
    {
        NotificationService& s = NotificationService::shared();
        s.setBackend(std::make_unique<NotificationBackendDBus>(m_name));
        return s;
    }

private slots:
    void initTestCase()
    {
        m_server = new FakeNotificationServer;
        m_server->moveToThread(&m_thread);
        m_thread.start();
        QVERIFY(m_server->registerOn(m_name));
        m_now = QDateTime(QDate(2026, 3, 1), QTime(9, 0));
        Clock::setSource([this] { return m_now; });
    }

    void cleanupTestCase()
    {
        Clock::setSource({});
        m_thread.quit();
        m_thread.wait();
        delete m_server;
    }

    void requestFallsDueAtItsInstant()
    {
        NotificationService& s = service();
        QSignalSpy delivered(&s, &NotificationService::delivered);
        const std::optional<QString> id =
            await(s.schedule(QStringLiteral("Focus Complete!"), QStringLiteral("Time for a break."),
                             m_now.addMSecs(150)));
        QVERIFY(id.has_value());
        QCOMPARE(id->size(), 36); // canonical UUID text
        QVERIFY(s.pendingIDs().contains(*id));

        // Real time passes but the wall clock has not reached the instant.
        QTest::qWait(400);
        QCOMPARE(delivered.count(), 0);
        QVERIFY(m_server->notices().isEmpty());

        m_now = m_now.addMSecs(150);
        QTRY_COMPARE(delivered.count(), 1);
        QCOMPARE(delivered.first().first().toString(), *id);
        QVERIFY(!s.pendingIDs().contains(*id));
        const auto notices = m_server->notices();
        QCOMPARE(notices.size(), 1);
        QCOMPARE(notices.first().summary, QStringLiteral("Focus Complete!"));
        QCOMPARE(notices.first().body, QStringLiteral("Time for a break."));
        QCOMPARE(notices.first().appName, QStringLiteral("Tidewell"));
        QVERIFY(notices.first().hints.contains(QStringLiteral("sound-name")));
    }

    void pastInstantAndCancellation()
    {
        NotificationService& s = service();
        const int before = int(m_server->notices().size());
        QVERIFY(!await(s.schedule(QStringLiteral("a"), QStringLiteral("b"), m_now)).has_value());
        QVERIFY(!await(s.schedule(QStringLiteral("a"), QStringLiteral("b"), m_now.addSecs(-5)))
                     .has_value());
        QVERIFY(s.pendingIDs().isEmpty());

        const auto first =
            await(s.schedule(QStringLiteral("a"), QStringLiteral("b"), m_now.addMSecs(50)));
        const auto second =
            await(s.schedule(QStringLiteral("a"), QStringLiteral("b"), m_now.addMSecs(50)));
        QVERIFY(first && second);
        s.cancel(*first);
        s.cancel(QStringLiteral("not-ours"));
        QCOMPARE(s.pendingIDs(), QSet<QString>{*second});
        s.cancelAll();
        QVERIFY(s.pendingIDs().isEmpty());
        s.cancelAll();

        m_now = m_now.addSecs(1);
        QTest::qWait(200);
        QCOMPARE(m_server->notices().size(), before);
    }

    void testNoticeAndServerCheck()
    {
        NotificationService& s = service();
        const int before = int(m_server->notices().size());
        QCOMPARE(await(s.fireTest()), QString());
        QCOMPARE(m_server->notices().size(), before + 1);
        QCOMPARE(m_server->notices().last().summary, QStringLiteral("Tidewell"));
        QCOMPARE(m_server->notices().last().body, QStringLiteral("Notifications are working."));
        QVERIFY(s.pendingIDs().isEmpty());

        await(s.checkAuthorization()); // a server answers: nothing logged

        // Nobody owns the name: the check logs, the test notice reports the failure.
        s.setBackend(
            std::make_unique<NotificationBackendDBus>(QStringLiteral("org.tidewell.test.Nobody")));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                               "^NotificationService auth error: .+")));
        await(s.checkAuthorization());
        QVERIFY(!await(s.fireTest()).isEmpty());

        // A due request whose delivery fails logs the schedule line.
        QSignalSpy delivered(&s, &NotificationService::delivered);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                               "^NotificationService schedule failed: .+")));
        QVERIFY(await(s.schedule(QStringLiteral("a"), QStringLiteral("b"), m_now.addMSecs(10))));
        m_now = m_now.addSecs(1);
        QTRY_COMPARE(delivered.count(), 1);
    }
};

QTEST_GUILESS_MAIN(TestNotificationService)
#include "tst_notificationservice.moc"
