#include "Debouncer.h"
#include "ManualWaits.h"

#include <QTest>

using namespace std::chrono_literals;

class TestDebouncer final : public QObject
{
    Q_OBJECT

private slots:
    void coalescesBurstsAndCancelsPerKey()
    {
        ManualWaits waits;
        Debouncer debouncer(nullptr, waits.factory());
        int habits = 0, pomodoro = 0;
        std::chrono::milliseconds ranAt{-1};
        debouncer.schedule(QStringLiteral("pomodoro"), 30ms, [&] { ++pomodoro; });
        debouncer.cancel(QStringLiteral("pomodoro"));
        debouncer.cancel(QStringLiteral("unknown"));
        for (int i = 0; i < 3; ++i) {
            debouncer.schedule(QStringLiteral("habits"), 150ms, [&] {
                ++habits;
                ranAt = waits.now;
            });
            waits.advance(40ms); // a burst: calls closer than the delay
        }
        QCOMPARE(habits, 0);
        QVERIFY(debouncer.isPending(QStringLiteral("habits")));
        // Once, a full delay after the last call of the burst; the cancelled key never.
        waits.advance(200ms);
        QCOMPARE(habits, 1);
        QCOMPARE(ranAt, 80ms + 150ms);
        waits.advance(1000ms);
        QCOMPARE(habits, 1);
        QCOMPARE(pomodoro, 0);
        QVERIFY(!debouncer.isPending(QStringLiteral("habits")));
        QCOMPARE(waits.made, 2); // one per key, however many calls
    }

    // A burst between two returns to the event loop (a script driving the app, a
    // pull) must not leave an object per call waiting to be deleted; an action may
    // schedule its own key again. On real timers: the default wait.
    void aBurstReusesItsTimer()
    {
        Debouncer debouncer;
        int runs = 0;
        for (int i = 0; i < 10'000; ++i)
            debouncer.schedule(QStringLiteral("tasks"), 1ms, [&] { ++runs; });
        QCOMPARE(debouncer.children().size(), 1);
        QTRY_COMPARE(runs, 1);
        debouncer.schedule(QStringLiteral("tasks"), 1ms, [&] {
            if (++runs < 4)
                debouncer.schedule(QStringLiteral("tasks"), 1ms, [&] { ++runs; });
        });
        QTRY_COMPARE(runs, 3);
        QCOMPARE(debouncer.children().size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestDebouncer)
#include "tst_debouncer.moc"
