#include "Debouncer.h"

#include <QElapsedTimer>
#include <QTest>

using namespace std::chrono_literals;

class TestDebouncer final : public QObject
{
    Q_OBJECT

private slots:
    void coalescesPerKey()
    {
        Debouncer debouncer;
        int habits = 0, tasks = 0;
        QElapsedTimer sinceLast;
        qint64 ranAfter = -1;
        for (int i = 0; i < 3; ++i) {
            debouncer.schedule(QStringLiteral("habits"), 150ms, [&] {
                ++habits;
                ranAfter = sinceLast.elapsed();
            });
            sinceLast.start();
            if (i == 1)
                debouncer.schedule(QStringLiteral("tasks"), 10ms, [&] { ++tasks; });
            QTest::qWait(40);
        }
        QTRY_COMPARE(tasks, 1);
        QTRY_COMPARE(habits, 1);
        // The action ran a full delay after the last call of the burst, and only once.
        QVERIFY2(ranAfter >= 150, qPrintable(QString::number(ranAfter)));
        QTest::qWait(200);
        QCOMPARE(habits, 1);
        QCOMPARE(tasks, 1);
        QVERIFY(!debouncer.isPending(QStringLiteral("habits")));
    }

    void cancelDropsOnlyThatKey()
    {
        Debouncer debouncer;
        int pomodoro = 0, habits = 0;
        debouncer.schedule(QStringLiteral("pomodoro"), 30ms, [&] { ++pomodoro; });
        debouncer.schedule(QStringLiteral("habits"), 30ms, [&] { ++habits; });
        debouncer.cancel(QStringLiteral("pomodoro"));
        debouncer.cancel(QStringLiteral("unknown"));
        QTRY_COMPARE(habits, 1);
        QTest::qWait(60);
        QCOMPARE(pomodoro, 0);
    }

    void actionMayRescheduleItsOwnKey()
    {
        Debouncer debouncer;
        int runs = 0;
        std::function<void()> action = [&] {
            if (++runs < 3)
                debouncer.schedule(QStringLiteral("k"), 5ms, action);
        };
        debouncer.schedule(QStringLiteral("k"), 5ms, action);
        QTRY_COMPARE(runs, 3);
    }
};

QTEST_GUILESS_MAIN(TestDebouncer)
#include "tst_debouncer.moc"
