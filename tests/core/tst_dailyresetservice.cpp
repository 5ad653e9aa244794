#include "Clock.h"
#include "DailyResetService.h"

#include <QTest>

#include <ctime>

namespace {
void setZone(const QString& zone)
{
    qputenv("TZ", zone.toLatin1());
    tzset();
}

// A wall-clock time in the current zone.
QDateTime local(const QString& text)
{
    return QDateTime::fromString(text, u"yyyy-MM-dd HH:mm:ss");
}
} // namespace

class TestDailyResetService final : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setZone("UTC"); }

    void nextRollover_data()
    {
        // Wall-clock times, read once the zone is set.
        QTest::addColumn<QString>("zone");
        QTest::addColumn<QString>("now");
        QTest::addColumn<QString>("next");
        const auto row = [](const char* name, const char* zone, const char* now, const char* next) {
            QTest::newRow(name) << QString::fromLatin1(zone) << QString::fromLatin1(now)
                                << QString::fromLatin1(next);
        };
        row("ordinary", "Europe/Berlin", "2024-03-05 23:59:58", "2024-03-06 00:00:05");
        // A 23-hour and a 25-hour day: calendar days, not 24 hours.
        row("spring", "Europe/Berlin", "2024-03-31 00:00:05", "2024-04-01 00:00:05");
        row("autumn", "Europe/Berlin", "2024-10-27 00:00:05", "2024-10-28 00:00:05");
        // On 4 November 2018 Brazil's clocks jumped from 00:00 to 01:00.
        row("no midnight", "America/Sao_Paulo", "2018-11-03 12:00:00", "2018-11-04 01:00:05");
    }

    void nextRollover()
    {
        QFETCH(QString, zone);
        QFETCH(QString, now);
        QFETCH(QString, next);
        setZone(zone);
        const QDateTime rollover = DailyResetService::nextRollover(local(now));
        QCOMPARE(rollover, local(next));
        // The day key turns over at the day's first instant, whatever the clocks did; an
        // instant given in UTC is keyed by the local day all the same.
        QCOMPARE(DailyResetService::dateString(rollover.addSecs(-6)), now.left(10));
        QCOMPARE(DailyResetService::dateString(rollover.addSecs(-5).toUTC()), next.left(10));
    }

    void firesHandlersInOrderAndRearms()
    {
        setZone("Europe/Berlin");
        QDateTime now;
        const Clock clock([&now] { return now; });
        DailyResetService service(clock);
        QStringList calls;
        service.registerHandler([&] { calls << QStringLiteral("habits"); });
        service.registerHandler([&] {
            calls << QStringLiteral("timer");
            // Registered during a rollover: first called at the next one.
            if (calls.size() == 2)
                service.registerHandler([&] { calls << QStringLiteral("late"); });
        });

        now = local("2024-03-30 23:59:58");
        service.scheduleNext();
        QCOMPARE(service.nextFireTime(), local("2024-03-31 00:00:05"));
        service.fireIfDue(); // too early: nothing happens
        QVERIFY(calls.isEmpty());

        now = service.nextFireTime();
        service.fireIfDue();
        QCOMPARE(calls, (QStringList{QStringLiteral("habits"), QStringLiteral("timer")}));
        QCOMPARE(service.nextFireTime(), local("2024-04-01 00:00:05"));

        // A machine that slept through midnight fires as soon as it looks again.
        now = local("2024-04-01 09:30:00");
        service.fireIfDue();
        QCOMPARE(calls.size(), 5);
        QCOMPARE(calls.last(), QStringLiteral("late"));
        QCOMPARE(service.nextFireTime(), local("2024-04-02 00:00:05"));

        service.stop();
        now = now.addDays(2);
        service.fireIfDue();
        QCOMPARE(calls.size(), 5);
    }
};

QTEST_GUILESS_MAIN(TestDailyResetService)
#include "tst_dailyresetservice.moc"
