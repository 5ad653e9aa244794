#include "AudioService.h"
#include "Clock.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "HabitsService.h"

#include <QSignalSpy>
#include <QTest>

class TestHabitsService final : public QObject
{
    Q_OBJECT

    QDateTime m_now;
    std::unique_ptr<HabitsService> m_service;
    int m_pushes = 0;
    int m_saves = 0;

    ModelContext& context() { return DataStore::shared().mainContext(); }
    HabitsService& service() { return *m_service; }

    Habit* add(qint64 maxValue = 3)
    {
        return service().createHabit(QStringLiteral("💧"), QStringLiteral("Water"),
                                     QStringLiteral("#38BDF8"), maxValue, context());
    }

private slots:
    void initTestCase()
    {
        Clock::setSource([this] { return m_now; });
        AudioService::shared().setMuted(false);
    }

    void init()
    {
        m_now = QDateTime(QDate(2026, 6, 10), QTime(9, 0));
        QString error;
        DataStore::setShared(DataStore::open(QStringLiteral(":memory:"), &error));
        connect(&context(), &ModelContext::saved, this, [this] { ++m_saves; });
        m_service = std::make_unique<HabitsService>();
        m_service->setPushHandler([this] { ++m_pushes; });
        m_pushes = m_saves = 0;
    }

    void cleanupTestCase() { Clock::setSource({}); }

    void ordersAndTargets()
    {
        QCOMPARE(add()->order(), qint64(0));
        Habit* second = add(0);
        QCOMPARE(second->order(), qint64(1));
        QCOMPARE(second->maxValue(), qint64(1));
        Habit* third = add(-4);
        QCOMPARE(third->maxValue(), qint64(1));
        third->setOrder(5);
        Habit* fourth = add();
        QCOMPARE(fourth->order(), qint64(6));
        service().deleteHabit(fourth, context());
        QCOMPARE(add()->order(), qint64(6)); // the largest order is reused

        // Lowering the target below the count pulls the count down.
        Habit* h = add(5);
        for (int i = 0; i < 4; ++i)
            service().increment(h, context());
        service().updateHabit(h, QStringLiteral("🏃"), QStringLiteral("Run"),
                              QStringLiteral("F87171"), 2, context());
        QCOMPARE(h->currentValue(), qint64(2));
        QCOMPARE(h->name(), QStringLiteral("Run"));
        service().updateHabit(h, h->icon(), h->name(), h->colorHex(), 0, context());
        QCOMPARE(h->maxValue(), qint64(1));
        QCOMPARE(h->currentValue(), qint64(1));
    }

    void countingKeepsOneRecordForToday()
    {
        Habit* h = add(3);
        QSignalSpy played(&AudioService::shared(), &AudioService::played);
        QTRY_COMPARE(m_saves, 1);
        m_now = m_now.addSecs(3600);
        service().increment(h, context());
        QCOMPARE(h->firstTrackerDate(), m_now); // the counting day starts with the first count
        const QDateTime started = m_now;
        m_now = m_now.addSecs(60);
        for (int expected = 2; expected <= 3; ++expected) {
            service().increment(h, context());
            QCOMPARE(h->currentValue(), qint64(expected));
        }
        QCOMPARE(h->firstTrackerDate(), started);
        QList<HabitHistory*> history = h->history();
        QCOMPARE(history.size(), 1);
        QCOMPARE(history[0]->date(), QStringLiteral("2026-06-10"));
        QCOMPARE(history[0]->value(), qint64(3));
        QVERIFY(history[0]->completed());
        QCOMPARE(played.count(), 3);
        QTRY_COMPARE(m_saves, 2);

        // At the target: nothing at all happens.
        service().increment(h, context());
        QCOMPARE(played.count(), 3);
        QTest::qWait(HabitsService::SaveDelayMs + 200);
        QCOMPARE(m_saves, 2);
        QCOMPARE(m_pushes, 2);

        // A reset keeps the day's record as it was and starts from 0.
        service().reset(h, context());
        QCOMPARE(h->currentValue(), qint64(0));
        QCOMPARE(played.last()[0].value<AudioService::Sound>(),
                 AudioService::Sound::WaterTrackReset);
        QCOMPARE(h->history()[0]->value(), qint64(3));
        service().increment(h, context());
        QCOMPARE(h->history().size(), 1);
        QCOMPARE(h->history()[0]->value(), qint64(1));
        QVERIFY(!h->history()[0]->completed());
    }

    void rolloverClosesTheRightDay()
    {
        Habit* yesterday = add(4);
        Habit* counted = add(4);
        service().increment(yesterday, context());
        service().increment(yesterday, context());
        // `counted` was created yesterday and never counted: no record for that day yet.
        m_now = QDateTime(QDate(2026, 6, 11), QTime(7, 30));
        Habit* today = add(4);
        service().increment(today, context());

        service().checkDayReset(context(), false);
        QCOMPARE(yesterday->currentValue(), qint64(0));
        QCOMPARE(yesterday->firstTrackerDate(), m_now);
        QCOMPARE(yesterday->history().size(), 1); // the existing record is left as it was
        QCOMPARE(yesterday->history()[0]->value(), qint64(2));
        QCOMPARE(counted->history().size(), 1);
        QCOMPARE(counted->history()[0]->date(), QStringLiteral("2026-06-10"));
        QCOMPARE(counted->history()[0]->value(), qint64(0));
        QCOMPARE(today->currentValue(), qint64(1)); // counted today: untouched

        // Forced (midnight): every habit, closed under its own counting day.
        service().checkDayReset(context(), true);
        QCOMPARE(today->currentValue(), qint64(0));
        QCOMPARE(today->history().size(), 1);
        QCOMPARE(today->history()[0]->date(), QStringLiteral("2026-06-11"));
        QCOMPARE(today->history()[0]->value(), qint64(1));
    }

    void burstOfCountsSavesAndPushesOnce()
    {
        Habit* h = add(10);
        QTRY_COMPARE(m_pushes, 1);
        for (int i = 0; i < 5; ++i)
            service().increment(h, context());
        QTest::qWait(HabitsService::SaveDelayMs / 2);
        QCOMPARE(m_pushes, 1);
        QTRY_COMPARE(m_pushes, 2);
        QCOMPARE(m_saves, 2);
        QTest::qWait(HabitsService::SaveDelayMs + 100);
        QCOMPARE(m_pushes, 2);
        // The save really reached the file's context.
        QCOMPARE(context().fetch<Habit>().first()->currentValue(), qint64(5));
    }

    void bootstrapRunsOnce()
    {
        Habit* h = add(2);
        service().increment(h, context());
        m_now = m_now.addDays(1);
        service().bootstrap();
        QCOMPARE(h->currentValue(), qint64(0));
        service().increment(h, context());
        service().bootstrap();
        QCOMPARE(h->currentValue(), qint64(1));

        // One midnight handler: a rollover that changes something saves once.
        DailyResetService& rollover = DailyResetService::shared();
        rollover.scheduleNext();
        m_now = rollover.nextFireTime();
        const int before = m_saves;
        rollover.fireIfDue();
        rollover.stop();
        QCOMPARE(m_saves - before, 1);
        QCOMPARE(h->currentValue(), qint64(0));
        QCOMPARE(h->history().size(), 2); // the closed day kept its own record
    }
};

QTEST_GUILESS_MAIN(TestHabitsService)
#include "tst_habitsservice.moc"
