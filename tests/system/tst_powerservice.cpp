#include "FakeScreenSaver.h"
#include "PowerService.h"
#include "SleepInhibitorDBus.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

class TestPowerService final : public QObject
{
    Q_OBJECT

    QThread m_thread;
    FakeScreenSaver* m_saver = nullptr;
    const QString m_name = QStringLiteral("org.tidewell.test.ScreenSaver");

private slots:
    void initTestCase()
    {
        m_saver = new FakeScreenSaver;
        m_saver->moveToThread(&m_thread);
        m_thread.start();
        QVERIFY(m_saver->registerOn(m_name));
    }

    void cleanupTestCase()
    {
        m_thread.quit();
        m_thread.wait();
        delete m_saver;
    }

    void acquireAndReleasePair()
    {
        PowerService& power = PowerService::shared();
        power.setInhibitor(std::make_unique<SleepInhibitorDBus>(m_name));
        QSignalSpy heldChanged(&power, &PowerService::isHeldChanged);

        power.acquire(QStringLiteral("Tidewell focus session"));
        power.acquire(QStringLiteral("Tidewell focus session"));
        QVERIFY(power.isHeld());
        QCOMPARE(m_saver->inhibitCalls(), 1);
        QCOMPARE(m_saver->lastReason(), QStringLiteral("Tidewell focus session"));
        QCOMPARE(m_saver->held(), QSet<uint>{power.assertionID()});
        QCOMPARE(heldChanged.count(), 1);

        power.release();
        QVERIFY(!power.isHeld());
        QCOMPARE(power.assertionID(), 0u);
        QTRY_VERIFY(m_saver->held().isEmpty());
        power.release();
        QCOMPARE(heldChanged.count(), 2);

        // A fresh acquire after a release takes a new hold.
        power.acquire(QStringLiteral("again"));
        QVERIFY(power.isHeld());
        QCOMPARE(m_saver->inhibitCalls(), 2);
        power.release();
    }

    void unavailableServiceLeavesNothingHeld()
    {
        PowerService& power = PowerService::shared();
        power.setInhibitor(
            std::make_unique<SleepInhibitorDBus>(QStringLiteral("org.tidewell.test.Nobody")));
        power.acquire(QStringLiteral("x"));
        QVERIFY(!power.isHeld());
        power.release();

        // A service that takes the call but never answers: bounded wait, not a hang.
        m_saver->setSilent(true);
        power.setInhibitor(std::make_unique<SleepInhibitorDBus>(m_name));
        QElapsedTimer waited;
        waited.start();
        power.acquire(QStringLiteral("x"));
        QVERIFY(!power.isHeld());
        QVERIFY(waited.elapsed() < SleepInhibitorDBus::TimeoutMs + 2000);
        m_saver->setSilent(false);

        // The next acquire tries again and succeeds.
        power.acquire(QStringLiteral("x"));
        QVERIFY(power.isHeld());
        power.release();
    }
};

QTEST_GUILESS_MAIN(TestPowerService)
#include "tst_powerservice.moc"
