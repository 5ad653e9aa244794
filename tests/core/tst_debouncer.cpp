#include "Debouncer.h"

#include <QElapsedTimer>
#include <QTest>

using namespace std::chrono_literals;

class TestDebouncer final : public QObject
{
    Q_OBJECT

private slots:
    void coalescesBurstsAndCancelsPerKey()
    {
        Debouncer debouncer;
        int habits = 0, pomodoro = 0;
        QElapsedTimer sinceLast;
        qint64 ranAfter = -1;
        debouncer.schedule(QStringLiteral("pomodoro"), 30ms, [&] { ++pomodoro; });
        debouncer.cancel(QStringLiteral("pomodoro"));
        debouncer.cancel(QStringLiteral("unknown"));
        for (int i = 0; i < 3; ++i) {
            debouncer.schedule(QStringLiteral("habits"), 150ms, [&] {
                ++habits;
                ranAfter = sinceLast.elapsed();
            });
            sinceLast.start();
            QTest::qWait(40); // a burst: calls closer than the delay
        }
        // Once, a full delay after the last call of the burst; the cancelled key never.
        QTRY_COMPARE(habits, 1);
        QVERIFY2(ranAfter >= 150, qPrintable(QString::number(ranAfter)));
        QTest::qWait(200); // a delay more: no second run
        QCOMPARE(habits, 1);
        QCOMPARE(pomodoro, 0);
        QVERIFY(!debouncer.isPending(QStringLiteral("habits")));
    }

    // A burst between two returns to the event loop (a script driving the app, a
    // pull) must not leave an object per call waiting to be deleted; an action may
    // schedule its own key again.
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
