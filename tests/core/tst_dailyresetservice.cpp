#include "Clock.h"
#include "DailyResetService.h"

#include <QTest>
#include <QTimeZone>

#include <ctime>

namespace {
void setZone(const char* zone)
{
    qputenv("TZ", zone);
    tzset();
}

QDateTime local(int y, int mo, int d, int h, int mi, int s)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s));
}
} // namespace

class TestDailyResetService final : public QObject
{
    Q_OBJECT

    QDateTime m_now;

private slots:
    void init()
    {
        Clock::setSource([this] { return m_now; });
    }

    void cleanup() { Clock::setSource({}); }

    void nextRollover_data()
    {
        QTest::addColumn<QByteArray>("zone");
        QTest::addColumn<QDateTime>("now");
        QTest::addColumn<QDateTime>("expected");
        QTest::addColumn<qint64>("hoursUntil");

        setZone("Europe/Berlin");
        // Clocks go forward on 31 March 2024 (23-hour day) and back on 27 October.
        QTest::newRow("berlin ordinary")
            << QByteArray("Europe/Berlin") << local(2024, 3, 5, 23, 59, 58)
            << local(2024, 3, 6, 0, 0, 5) << qint64(0);
        QTest::newRow("berlin spring") << QByteArray("Europe/Berlin") << local(2024, 3, 31, 0, 0, 5)
                                       << local(2024, 4, 1, 0, 0, 5) << qint64(23);
        QTest::newRow("berlin autumn")
            << QByteArray("Europe/Berlin") << local(2024, 10, 27, 0, 0, 5)
            << local(2024, 10, 28, 0, 0, 5) << qint64(25);
        setZone("America/Sao_Paulo");
        // In 2018 Brazil's clocks jumped from 00:00 to 01:00 on 4 November: that day
        // starts at 01:00.
        QTest::newRow("sao paulo skipped midnight")
            << QByteArray("America/Sao_Paulo") << local(2018, 11, 3, 12, 0, 0)
            << local(2018, 11, 4, 1, 0, 5) << qint64(12);
        setZone("UTC");
    }

    void nextRollover()
    {
        QFETCH(QByteArray, zone);
        QFETCH(QDateTime, now);
        QFETCH(QDateTime, expected);
        QFETCH(qint64, hoursUntil);
        setZone(zone.constData());
        // Build the instants again in the zone under test.
        now = local(now.date().year(), now.date().month(), now.date().day(), now.time().hour(),
                    now.time().minute(), now.time().second());
        expected =
            local(expected.date().year(), expected.date().month(), expected.date().day(),
                  expected.time().hour(), expected.time().minute(), expected.time().second());
        const QDateTime next = DailyResetService::nextRollover(now);
        QCOMPARE(next.toMSecsSinceEpoch(), expected.toMSecsSinceEpoch());
        QCOMPARE(now.secsTo(next) / 3600, hoursUntil);
        setZone("UTC");
    }

    void dayKeys()
    {
        setZone("America/Sao_Paulo");
        QCOMPARE(DailyResetService::dateString(local(2024, 3, 5, 0, 0, 0)),
                 QStringLiteral("2024-03-05"));
        QCOMPARE(DailyResetService::dateString(local(2024, 3, 5, 23, 59, 59)),
                 QStringLiteral("2024-03-05"));
        QCOMPARE(DailyResetService::dateString(local(2024, 3, 5, 23, 59, 59).addMSecs(999)),
                 QStringLiteral("2024-03-05"));
        QCOMPARE(DailyResetService::dateString(local(2024, 3, 6, 0, 0, 0)),
                 QStringLiteral("2024-03-06"));
        // An instant given in UTC is keyed by the local day: 02:00 UTC is still the 4th here.
        const QDateTime utc(QDate(2024, 3, 5), QTime(2, 0), QTimeZone::utc());
        QCOMPARE(DailyResetService::dateString(utc), QStringLiteral("2024-03-04"));
        QCOMPARE(DailyResetService::dateString(local(987, 1, 2, 12, 0, 0)),
                 QStringLiteral("0987-01-02"));
        setZone("UTC");
    }

    void firesHandlersInOrderAndRearms()
    {
        setZone("Europe/Berlin");
        DailyResetService service;
        QStringList calls;
        service.registerHandler([&] { calls << QStringLiteral("habits"); });
        service.registerHandler([&] {
            calls << QStringLiteral("timer");
            // Registered during a rollover: first called at the next one.
            if (calls.size() == 2)
                service.registerHandler([&] { calls << QStringLiteral("late"); });
        });

        m_now = local(2024, 3, 30, 23, 59, 58);
        service.scheduleNext();
        QCOMPARE(service.nextFireTime(), local(2024, 3, 31, 0, 0, 5));

        service.fireIfDue(); // too early: nothing happens
        QVERIFY(calls.isEmpty());

        m_now = local(2024, 3, 31, 0, 0, 5);
        service.fireIfDue();
        QCOMPARE(calls, (QStringList{QStringLiteral("habits"), QStringLiteral("timer")}));
        // Re-armed for the next local midnight, one (23-hour) calendar day on.
        QCOMPARE(service.nextFireTime(), local(2024, 4, 1, 0, 0, 5));

        // A machine that slept through midnight fires as soon as it looks again.
        m_now = local(2024, 4, 1, 9, 30, 0);
        service.fireIfDue();
        QCOMPARE(calls.size(), 5);
        QCOMPARE(calls.last(), QStringLiteral("late"));
        QCOMPARE(service.nextFireTime(), local(2024, 4, 2, 0, 0, 5));

        service.stop();
        m_now = local(2024, 4, 3, 0, 0, 0);
        service.fireIfDue();
        QCOMPARE(calls.size(), 5);
        setZone("UTC");
    }
};

QTEST_GUILESS_MAIN(TestDailyResetService)
#include "tst_dailyresetservice.moc"
