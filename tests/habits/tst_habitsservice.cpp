#include "AudioService.h"
#include "Clock.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "HabitsService.h"
#include "ManualClock.h"
#include "ModuleLoader.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

class TestHabitsService final : public QObject
{
    Q_OBJECT

    ManualClock m_time;
    const ModuleLoader m_modules{QStringLiteral(TIDEWELL_TEST_MODULE_DIR)};
    AudioService m_audio{m_modules};
    DailyResetService m_dayReset{m_time.clock()};
    std::unique_ptr<DataStore> m_store;
    std::unique_ptr<HabitsService> m_service;
    int m_pushes = 0;
    int m_saves = 0;

    ModelContext& context() { return m_store->mainContext(); }
    HabitsService& service() { return *m_service; }
    Habit* add(qint64 m) { return service().createHabit("💧", "Water", "#38BDF8", m, context()); }
    void count(Habit* h, int n = 1)
    {
        while (n-- > 0)
            service().increment(h, context());
    }
    // A habit's records as "date value", a star marking a completed day.
    static QStringList records(const Habit* h)
    {
        QStringList out;
        for (const HabitHistory* r : h->history())
            out << r->date() + u' ' + QString::number(r->value()) + (r->completed() ? u"*" : u"");
        return out;
    }

private slots:
    void init()
    {
        m_time.now = QDateTime(QDate(2026, 6, 10), QTime(9, 0));
        m_service.reset();
        m_store = DataStore::open(QStringLiteral(":memory:"), nullptr);
        connect(&context(), &ModelContext::saved, this, [this] { ++m_saves; });
        m_service = std::make_unique<HabitsService>(*m_store, m_time.clock(), m_audio, m_dayReset,
                                                    [this]() -> QCoro::Task<> {
                                                        ++m_pushes;
                                                        co_return;
                                                    });
        m_pushes = m_saves = 0;
    }

    void ordersAndTargets()
    {
        QCOMPARE(add(3)->order(), qint64(0));
        Habit* second = add(0);
        QCOMPARE(second->order(), qint64(1));
        QCOMPARE(second->maxValue(), qint64(1)); // a target is at least one
        QCOMPARE(add(-4)->maxValue(), qint64(1));
        second->setOrder(5);
        service().deleteHabit(add(3), context());
        QCOMPARE(add(3)->order(), qint64(6)); // one past the largest, whatever the count

        // Lowering the target below the count pulls the count down.
        Habit* h = add(5);
        count(h, 4);
        service().updateHabit(h, h->icon(), h->name(), h->colorHex(), 2, context());
        QCOMPARE(h->currentValue(), qint64(2));
        service().updateHabit(h, h->icon(), h->name(), h->colorHex(), 0, context());
        QCOMPARE(h->maxValue(), qint64(1));
        QCOMPARE(h->currentValue(), qint64(1));
    }

    void countingKeepsOneRecordForToday()
    {
        Habit* h = add(3);
        QSignalSpy played(&m_audio, &AudioService::played);
        QTRY_COMPARE(m_pushes, 1);
        m_time.now = m_time.now.addSecs(3600);
        count(h);
        QCOMPARE(h->firstTrackerDate(), m_time.now); // the counting day starts with the first count
        const QDateTime started = m_time.now;
        m_time.now = m_time.now.addSecs(60);
        count(h, 2);
        QCOMPARE(h->firstTrackerDate(), started);
        QCOMPARE(records(h), QStringList{"2026-06-10 3*"});

        // The burst is saved and pushed once, after the wait; at the target a count
        // does nothing at all.
        QTest::qWait(HabitsService::SaveDelayMs / 2); // within the wait: not yet
        QCOMPARE(m_pushes, 1);
        QTRY_COMPARE(m_pushes, 2);
        QCOMPARE(m_saves, 2);
        count(h);
        QCOMPARE(h->currentValue(), qint64(3));
        QCOMPARE(played.count(), 3);
        QTest::qWait(HabitsService::SaveDelayMs + 200); // nothing to save: no save comes
        QCOMPARE(m_saves, 2);
        QCOMPARE(m_pushes, 2);

        // A reset leaves the day's record as it was and starts from 0.
        service().reset(h, context());
        QCOMPARE(h->currentValue(), qint64(0));
        QCOMPARE(played.last()[0].value<AudioService::Sound>(),
                 AudioService::Sound::WaterTrackReset);
        QCOMPARE(records(h), QStringList{"2026-06-10 3*"});
        count(h);
        QCOMPARE(records(h), QStringList{"2026-06-10 1"});
    }

    // Counts that never pause are still written every couple of seconds; the push
    // waits for the pause.
    void continuousBurstStillSaves()
    {
        Habit* h = add(100);
        QTRY_COMPARE(m_pushes, 1);
        const int saved = m_saves;
        QElapsedTimer burst;
        burst.start();
        while (burst.elapsed() < 3000) {
            count(h);
            QTest::qWait(HabitsService::SaveDelayMs / 3); // a count every third of the wait
        }
        QCOMPARE(m_pushes, 1);
        QVERIFY(m_saves > saved);
        QTRY_COMPARE(m_pushes, 2);
    }

    // A start on a new day closes the habits not counted that day; midnight closes
    // them all. Each is closed under its own counting day, keeping a record there.
    void rolloverArchivesTheRightDay()
    {
        Habit* yesterday = add(4);
        Habit* uncounted = add(4); // created yesterday: no record for that day yet
        count(yesterday, 2);
        m_time.now = QDateTime(QDate(2026, 6, 11), QTime(7, 30));
        Habit* today = add(4);
        count(today);

        service().bootstrap();
        QCOMPARE(yesterday->currentValue(), qint64(0));
        QCOMPARE(yesterday->firstTrackerDate(), m_time.now);
        QCOMPARE(records(yesterday), QStringList{"2026-06-10 2"});
        QCOMPARE(records(uncounted), QStringList{"2026-06-10 0"});
        QCOMPARE(today->currentValue(), qint64(1));
        service().bootstrap(); // registers no second midnight handler

        DailyResetService& rollover = m_dayReset;
        rollover.scheduleNext();
        m_time.now = rollover.nextFireTime();
        const int before = m_saves;
        rollover.fireIfDue();
        rollover.stop();
        QCOMPARE(m_saves - before, 1);
        QCOMPARE(today->currentValue(), qint64(0));
        QCOMPARE(records(today), QStringList{"2026-06-11 1"});
    }
};

QTEST_GUILESS_MAIN(TestHabitsService)
#include "tst_habitsservice.moc"
