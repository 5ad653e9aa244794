#include "Clock.h"
#include "ClockJumpsLinux.h"
#include "FakeDesktopServices.h"
#include "ManualClock.h"
#include "NotificationBackendDBus.h"
#include "NotificationService.h"
#include "PowerService.h"
#include "SleepInhibitorDBus.h"

#include <QCoro/QCoroTask>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

namespace {
template <typename T> T await(QCoro::Task<T> task)
{
    return QCoro::waitFor(std::move(task));
}
} // namespace

class TestDBusServices final : public QObject
{
    Q_OBJECT

    QThread m_thread;
    FakeNotificationServer* m_server = nullptr;
    FakeScreenSaver* m_saver = nullptr;
    const QString m_serverName = QStringLiteral("org.tidewell.test.Notifications");
    const QString m_saverName = QStringLiteral("org.tidewell.test.ScreenSaver");
    const QString m_nobody = QStringLiteral("org.tidewell.test.Nobody");
    ManualClock m_time{QDateTime(QDate(2026, 3, 1), QTime(9, 0))};
    std::unique_ptr<NotificationService> m_notifications;

    // A new service showing its notices through the server at `name`.
    NotificationService& notifications(const QString& name = {})
    {
        m_notifications = std::make_unique<NotificationService>(
            m_time.clock(),
            std::make_unique<NotificationBackendDBus>(name.isEmpty() ? m_serverName : name));
        return *m_notifications;
    }
    static std::unique_ptr<PowerService> powerThrough(const QString& name)
    {
        return std::make_unique<PowerService>(std::make_unique<SleepInhibitorDBus>(name));
    }

private slots:
    void initTestCase()
    {
        m_server = new FakeNotificationServer;
        m_saver = new FakeScreenSaver;
        m_server->moveToThread(&m_thread);
        m_saver->moveToThread(&m_thread);
        m_thread.start();
        QVERIFY(m_server->registerOn(m_serverName) && m_saver->registerOn(m_saverName));
    }

    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral("."))); }

    void cleanupTestCase()
    {
        m_notifications.reset();
        m_thread.quit();
        m_thread.wait();
        delete m_server;
        delete m_saver;
    }

    void requestIsDeliveredAtItsInstantUnlessCancelled()
    {
        NotificationService& s = notifications();
        QSignalSpy delivered(&s, &NotificationService::delivered);
        const std::optional<QString> id =
            await(s.schedule(QStringLiteral("Focus Complete!"), QStringLiteral("Time for a break."),
                             m_time.now.addMSecs(150)));
        QVERIFY(id.has_value());
        // Real time passes but the wall clock has not reached the instant.
        QTest::qWait(400);
        QVERIFY(m_server->notices().isEmpty());

        m_time.now = m_time.now.addMSecs(150);
        QTRY_COMPARE(delivered.count(), 1);
        QCOMPARE(delivered.first().first().toString(), *id);
        QVERIFY(s.pendingIDs().isEmpty());
        const auto notices = m_server->notices();
        QCOMPARE(notices.size(), 1);
        QCOMPARE(notices.first().summary, QStringLiteral("Focus Complete!"));
        QCOMPARE(notices.first().body, QStringLiteral("Time for a break."));
        QCOMPARE(notices.first().appName, QStringLiteral("Tidewell"));
        QVERIFY(notices.first().hints.contains(QStringLiteral("sound-name")));

        // Nothing is scheduled for an instant already reached; cancelled requests never show.
        const auto in = [&](qint64 ms) {
            return await(
                s.schedule(QStringLiteral("a"), QStringLiteral("b"), m_time.now.addMSecs(ms)));
        };
        QVERIFY(!in(0) && !in(-5000));
        const auto first = in(50), second = in(50);
        QVERIFY(first && second);
        s.cancel(*first);
        s.cancel(QStringLiteral("not-ours"));
        QCOMPARE(s.pendingIDs(), QSet<QString>{*second});
        s.cancelAll();
        QVERIFY(s.pendingIDs().isEmpty());
        m_time.now = m_time.now.addSecs(1);
        QTest::qWait(200); // time for a cancelled notice to come, were it to
        QCOMPARE(m_server->notices().size(), 1);
    }

    void testNoticeAndServerCheck()
    {
        NotificationService& s = notifications();
        QCOMPARE(await(s.fireTest()), QString());
        QCOMPARE(m_server->notices().size(), 2);
        QCOMPARE(m_server->notices().last().summary, QStringLiteral("Tidewell"));
        QCOMPARE(m_server->notices().last().body, QStringLiteral("Notifications are working."));
        // Desktops show the app's own icon and group the notices under its entry.
        QCOMPARE(m_server->notices().last().appIcon, QStringLiteral("com.brenlow.tidewell"));
        QCOMPARE(m_server->notices().last().hints.value(QStringLiteral("desktop-entry")),
                 QVariant(QStringLiteral("com.brenlow.tidewell")));
        QVERIFY(s.pendingIDs().isEmpty());
        await(s.checkAuthorization()); // a server answers: nothing logged

        // Nobody owns the name: the check logs, the test notice reports the failure.
        NotificationService& unheard = notifications(m_nobody);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                               "^NotificationService auth error: .+")));
        await(unheard.checkAuthorization());
        QVERIFY(!await(unheard.fireTest()).isEmpty());

        // A due request whose delivery fails logs the schedule line.
        QSignalSpy delivered(&unheard, &NotificationService::delivered);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                               "^NotificationService schedule failed: .+")));
        QVERIFY(await(
            unheard.schedule(QStringLiteral("a"), QStringLiteral("b"), m_time.now.addMSecs(10))));
        m_time.now = m_time.now.addSecs(1);
        QTRY_COMPARE(delivered.count(), 1);
    }

    void dueRequestsAreDeliveredNotWithdrawn()
    {
        NotificationService& s = notifications();
        const qsizetype before = m_server->notices().size();
        QSignalSpy delivered(&s, &NotificationService::delivered);
        const auto in = [&](qint64 ms) {
            return *await(s.schedule(QStringLiteral("Pomodoro Complete!"),
                                     QStringLiteral("Time for a break."), m_time.now.addMSecs(ms)));
        };
        // The phase's own clock saw the end first (its tick ran before the request's
        // timer): the end's notice still shows.
        const QString end = in(60'000);
        m_time.now = m_time.now.addSecs(61);
        s.cancel(end);
        QTRY_COMPARE(delivered.count(), 1);
        QTRY_COMPARE(m_server->notices().size(), before + 1);

        // A resume from a long suspend: everything due shows at once, the rest waits.
        const QString due = in(30'000), later = in(7'200'000);
        m_time.now = m_time.now.addSecs(3600);
        s.deliverDue();
        QTRY_COMPARE(delivered.count(), 2);
        QCOMPARE(delivered.last().first().toString(), due);
        QCOMPARE(s.pendingIDs(), QSet<QString>{later});
        s.cancel(later); // not due: withdrawn
        QVERIFY(s.pendingIDs().isEmpty());
        QTRY_COMPARE(m_server->notices().size(), before + 2);
        QTest::qWait(100); // the withdrawn one does not come
        QCOMPARE(delivered.count(), 2);
    }

    // The system says it woke: at once, and only on waking, not on going to sleep.
    // (A change of the system time comes from the kernel; it cannot be made here.)
    void resumeIsNoticed()
    {
        const QString logind = QStringLiteral("org.tidewell.test.login1");
        QDBusConnection fake = QDBusConnection::connectToBus(QDBusConnection::SessionBus, logind);
        QVERIFY(fake.registerService(logind));
        ClockJumpsLinux jumps(QDBusConnection::SessionBus, logind);
        QSignalSpy jumped(&jumps, &ClockJumps::jumped);
        const auto sleep = [&](bool goingToSleep) {
            QDBusMessage signal =
                QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/login1"),
                                           QStringLiteral("org.freedesktop.login1.Manager"),
                                           QStringLiteral("PrepareForSleep"));
            signal << goingToSleep;
            QVERIFY(fake.send(signal));
        };
        // The subscription is made off the GUI thread; send until it has taken.
        QTRY_VERIFY_WITH_TIMEOUT((sleep(false), !jumped.isEmpty()), 5000);
        QTest::qWait(200); // the last of those still on their way
        const int afterWake = int(jumped.count());
        sleep(true);
        QTest::qWait(200); // going to sleep is no jump
        QCOMPARE(jumped.count(), afterWake);
        sleep(false);
        QTRY_COMPARE(jumped.count(), afterWake + 1);
        QDBusConnection::disconnectFromBus(logind);
    }

    void sleepHoldIsTakenOnceAndAlwaysReleased()
    {
        std::unique_ptr<PowerService> power = powerThrough(m_saverName);
        QSignalSpy heldChanged(power.get(), &PowerService::isHeldChanged);
        const QString reason = QStringLiteral("Tidewell focus session");
        power->acquire(reason);
        power->acquire(reason); // asked already
        QTRY_VERIFY(power->isHeld());
        power->acquire(reason); // held already
        const FakeScreenSaver::State saver = m_saver->state();
        QCOMPARE(saver.calls, 1);
        QCOMPARE(saver.reason, reason);
        QCOMPARE(saver.held, QSet<uint>{power->assertionID()});
        power->release();
        power->release();
        QVERIFY(!power->isHeld());
        QTRY_VERIFY(m_saver->state().held.isEmpty());
        QCOMPARE(heldChanged.count(), 2);

        // A slow service: the caller does not wait for it (a blocking call would have
        // given up before the answer below is sent), and the late hold is taken.
        m_saver->setHoldAnswers(true);
        power->acquire(reason);
        QVERIFY(!power->isHeld());
        QTRY_COMPARE(m_saver->state().calls, 2);
        m_saver->answerHeld();
        QTRY_VERIFY(power->isHeld());
        power->release();
        // One that answers only after the session has ended: the hold it grants
        // late is given back at once, and none is announced.
        power->acquire(reason);
        QTRY_COMPARE(m_saver->state().calls, 3);
        power->release();
        m_saver->answerHeld();
        m_saver->setHoldAnswers(false);
        QTRY_VERIFY(m_saver->state().held.isEmpty());
        QVERIFY(!power->isHeld());
        QCOMPARE(heldChanged.count(), 4);

        // No service, then one that takes the call but never answers: the caller
        // never waits, and nothing is held.
        power = powerThrough(m_nobody);
        power->acquire(reason);
        QVERIFY(!power->isHeld());
        QTest::qWait(100); // and no late answer holds it
        QVERIFY(!power->isHeld());
        power->release();
        m_saver->setSilent(true);
        power = powerThrough(m_saverName);
        QSignalSpy laterChanged(power.get(), &PowerService::isHeldChanged);
        power->acquire(reason);
        QVERIFY(!power->isHeld());
        QTest::qWait(SleepInhibitorDBus::TimeoutMs + 200); // the call times out
        QVERIFY(!power->isHeld());
        power->release();

        // Neither a release nor a failure keeps the next acquire from taking a new hold.
        m_saver->setSilent(false);
        power->acquire(reason);
        QTRY_VERIFY(power->isHeld());
        QCOMPARE(m_saver->state().calls, 5);
        QCOMPARE(laterChanged.count(), 1); // the failures announced nothing
        power->release();
    }
};

QTEST_GUILESS_MAIN(TestDBusServices)
#include "tst_dbusservices.moc"
