#include "AudioService.h"
#include "AuthService.h"
#include "Clock.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "FakeKeychain.h"
#include "FakeSyncServer.h"
#include "FocusSession.h"
#include "Habit.h"
#include "HabitsService.h"
#include "ManualClock.h"
#include "NotificationService.h"
#include "PomodoroConfig.h"
#include "PomodoroService.h"
#include "PowerService.h"
#include "Preferences.h"
#include "TaskList.h"
#include "TasksService.h"
#include "TestServices.h"

#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {
constexpr qint64 focusMs = 1'500'000;
} // namespace

class TestPomodoroService final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    ManualClock m_time;
    std::shared_ptr<FakeKeychain> m_keychain = std::make_shared<FakeKeychain>();
    std::unique_ptr<AppServices> m_services;
    std::unique_ptr<PomodoroService> m_engine; // null: the one the services built
    QStringList m_notices;                     // "title: body @ time"
    int m_pushes = 0;
    std::function<void()> m_release;
    bool m_holdIdentifier = false; // the identifier comes back only on m_release()
    bool m_creep = false; // every reading of the clock moves it on 1 ms, as a real one does

    PomodoroService& engine() { return m_engine ? *m_engine : m_services->timer(); }
    void advance(qint64 ms) { m_time.now = m_time.now.addMSecs(ms); }
    void finishPhase()
    {
        advance(engine().remainingMs());
        engine().didBecomeActive();
    }
    // Focus phases towards the long break, all focus phases, short and long breaks.
    QList<qint64> counts()
    {
        return {engine().pomodoroCount(), engine().pomodoroTotalCount(), engine().shortBreakCount(),
                engine().longBreakCount()};
    }
    PomodoroConfig* stored()
    {
        return m_services->store().mainContext().fetch<PomodoroConfig>().first();
    }

    // A new process: the services built afresh over the same file.
    void restart()
    {
        m_engine.reset();
        m_services.reset();
        AppServices::Parts parts = testParts(m_dir.filePath(QStringLiteral("s.sqlite")));
        parts.clock = [this] {
            return m_creep ? (m_time.now = m_time.now.addMSecs(1)) : m_time.now;
        };
        parts.keychain = m_keychain;
        m_services = std::make_unique<AppServices>(std::move(parts));
        m_services->audio().setMuted(false);
    }

    // A restart with an engine of the test's own, which records its notices and
    // pushes and can hold back a notice's identifier.
    void relaunch()
    {
        restart();
        m_engine = std::make_unique<PomodoroService>(PomodoroService::Collaborators{
            m_services->store(), m_services->clock(), m_services->audio(), m_services->power(),
            m_services->notifications(), m_services->dayReset(),
            [this](const QString& title, const QString& body, const QDateTime& fireAt, auto done) {
                m_notices << title + u": " + body + u" @ " + fireAt.toString(u"HH:mm:ss.zzz");
                m_release = [=, this] {
                    QCoro::connect(m_services->notifications().schedule(title, body, fireAt),
                                   QCoreApplication::instance(), done);
                };
                if (!m_holdIdentifier)
                    m_release();
            },
            [this]() -> QCoro::Task<> {
                ++m_pushes;
                co_return;
            }});
        m_engine->bootstrap();
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_time.now = QDateTime(QDate(2026, 5, 4), QTime(10, 0));
        m_engine.reset();
        m_services.reset();
        m_keychain = std::make_shared<FakeKeychain>();
        QFile::remove(m_dir.filePath(QStringLiteral("s.sqlite")));
        m_notices.clear();
        m_pushes = 0;
        m_holdIdentifier = false;
        m_creep = false;
        relaunch();
    }

    void cleanup()
    {
        m_engine.reset();
        m_services.reset();
    }

    void focusSessionEndsOnceAtItsInstant()
    {
        QSignalSpy played(&m_services->audio(), &AudioService::played);
        engine().start();
        const QDateTime end = *engine().endDate();
        QCOMPARE(end, m_time.now.addMSecs(focusMs));
        engine().start(); // running already
        QCOMPARE(*engine().endDate(), end);
        QCOMPARE(m_notices, QStringList{"Pomodoro Complete!: Time for a break. @ 10:25:00.000"});
        QTRY_VERIFY(m_services->power().isHeld());

        advance(focusMs - 1);
        QTRY_COMPARE(engine().remainingMs(), qint64(1));
        QVERIFY(engine().isActive());
        // One tick arriving long after the end finishes one phase; a wake-up then replays nothing.
        advance(37'000);
        QTRY_VERIFY(!engine().isActive());
        engine().didBecomeActive();
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Short Break"));
        QCOMPARE(engine().remainingMs(), qint64(300'000));
        QCOMPARE(played.count(), 1);
        QCOMPARE(played[0][0].value<AudioService::Sound>(), AudioService::Sound::FinishPomodoro);
        QVERIFY(!m_services->power().isHeld());

        // A break has its own notice and leaves the display alone; slept through
        // for hours, it finishes once on wake and the next focus waits.
        engine().start();
        QCOMPARE(m_notices.last(), "Short Break Complete!: Back to work! @ 10:30:36.999");
        QVERIFY(!m_services->power().isHeld());
        advance(2 * 3600 * 1000);
        engine().didBecomeActive();
        engine().didBecomeActive();
        QVERIFY(!engine().isActive());
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Pomodoro"));
        QCOMPARE(counts(), (QList<qint64>{1, 1, 1, 0}));
        QCOMPARE(played.count(), 2);

        // Paused time does not count; a reset restores the full length.
        engine().start();
        advance(10'250);
        engine().pause();
        QVERIFY(!engine().isActive() && !engine().endDate());
        QCOMPARE(engine().remainingMs(), focusMs - 10'250);
        advance(3600 * 1000);
        engine().start();
        QCOMPARE(*engine().endDate(), m_time.now.addMSecs(focusMs - 10'250));
        engine().reset();
        QCOMPARE(engine().remainingMs(), focusMs);
    }

    void everyRunOfAPhaseIsRecordedOnce()
    {
        const auto sessions = [this] {
            QStringList out;
            for (const FocusSession* s : m_services->store().mainContext().fetch<FocusSession>(
                     FetchRequest::sortedBy(QStringLiteral("startedAt"))))
                out << QStringLiteral("%1 %2 %3-%4 %5/%6")
                           .arg(s->phase(), s->outcome(),
                                s->startedAt().toLocalTime().toString(u"HH:mm:ss"),
                                s->endedAt().toLocalTime().toString(u"HH:mm:ss"))
                           .arg(s->elapsedSeconds())
                           .arg(s->plannedSeconds());
            return out;
        };
        // Paused for an hour midway; the tick arrives late, but the run ended on time.
        engine().start();
        advance(600'000);
        engine().pause();
        advance(3'600'000);
        engine().start();
        advance(900'000 + 42'000);
        engine().didBecomeActive();
        QCOMPARE(sessions(), QStringList{"focus completed 10:00:00-11:25:00 1500/1500"});

        // Skipped and reset runs say so; a phase skipped before it started is no run.
        engine().start();
        advance(60'000);
        engine().skip();
        engine().start();
        advance(5'000);
        engine().reset();
        QCOMPARE(sessions().mid(1), (QStringList{"shortBreak skipped 11:25:42-11:26:42 60/300",
                                                 "focus reset 11:26:42-11:26:47 5/1500"}));
        engine().skip();
        engine().skip();
        QCOMPARE(sessions().size(), 3);

        // A run still open when the app goes (paused, here) is abandoned, once.
        engine().start();
        advance(20'000);
        engine().pause();
        relaunch();
        QCOMPARE(sessions().last(), "focus abandoned 11:26:47-11:27:07 20/1500");
        QCOMPARE(sessions().size(), 4);

        // A run to its end counts its whole length even when time moves between readings.
        engine().reset();
        m_creep = true;
        engine().start();
        finishPhase();
        m_creep = false;
        QVERIFY(sessions().last().endsWith(u" 1500/1500"));
    }

    void phaseSequenceAndLongBreakRule()
    {
        QSignalSpy played(&m_services->audio(), &AudioService::played);
        QStringList seen; // phase, focus phases towards the long break, minutes left
        for (int i = 0; i < 9; ++i) {
            // Alternate skipping and finishing: both count the same.
            if (i % 2 == 0) {
                engine().skip();
            } else {
                engine().start();
                finishPhase();
            }
            seen << QStringLiteral("%1 %2 %3")
                        .arg(engine().phaseLabel())
                        .arg(engine().pomodoroCount())
                        .arg(engine().remainingMs() / 60'000);
        }
        QCOMPARE(seen, QStringLiteral("Short Break 1 5,Pomodoro 1 25,Short Break 2 5,Pomodoro 2 25,"
                                      "Short Break 3 5,Pomodoro 3 25,Long Break 4 15,Pomodoro 0 25,"
                                      "Short Break 1 5")
                           .split(u','));
        QCOMPARE(counts(), (QList<qint64>{1, 5, 3, 1}));
        QCOMPARE(played.count(), 4); // finishes only; skips are silent
    }

    void notificationWithdrawnWhenThePhaseStops_data()
    {
        QTest::addColumn<int>("operation");
        QTest::addColumn<bool>("late");
        const char* names[] = {"pause", "reset", "skip", "finish", "settings"};
        for (int op = 0; op < 5; ++op) {
            QTest::addRow("%s", names[op]) << op << false;
            QTest::addRow("%s, identifier late", names[op]) << op << true;
        }
    }
    void notificationWithdrawnWhenThePhaseStops()
    {
        QFETCH(int, operation);
        QFETCH(bool, late);
        m_holdIdentifier = late;
        engine().start();
        QCOMPARE(m_services->notifications().pendingIDs().size(), late ? 0 : 1);
        const std::function<void()> stop[] = {[&] { engine().pause(); }, [&] { engine().reset(); },
                                              [&] { engine().skip(); }, [&] { finishPhase(); },
                                              [&] { engine().updateSettings({}, {}, {}, {}, {}); }};
        stop[operation]();
        QVERIFY(!engine().isActive());
        if (late)
            m_release();
        QVERIFY(m_services->notifications().pendingIDs().isEmpty());
        QVERIFY(!engine().scheduledNotificationId());
    }

    void dayResetAtMidnightAndOnRelaunch()
    {
        m_time.now = QDateTime(QDate(2026, 5, 4), QTime(23, 58));
        for (int i = 0; i < 3; ++i)
            engine().skip(); // to a short break, counts 2/2/1
        engine().start();
        const QDateTime end = *engine().endDate();
        m_services->dayReset().scheduleNext();
        m_time.now = QDateTime(QDate(2026, 5, 5), QTime(0, 0, 6));
        m_services->dayReset().fireIfDue();
        m_services->dayReset().stop();
        // Counts and phase start afresh; the running countdown keeps its end.
        QCOMPARE(counts(), (QList<qint64>{0, 0, 0, 0}));
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Pomodoro"));
        QCOMPARE(*engine().endDate(), end);
        QTRY_COMPARE(engine().remainingMs(), m_time.now.msecsTo(end));
        // Stored at once, so a relaunch today does not count the day again.
        QCOMPARE(stored()->firstPomodoroCountDate(), m_time.now);
        QCOMPARE(stored()->pomodoroTotalCount(), qint64(0));

        // A relaunch restores the stored phase and counts, stopped...
        engine().skip();
        QTRY_COMPARE(m_pushes, 2); // the reset's write, then the debounced one a second later
        relaunch();
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Short Break"));
        QCOMPARE(engine().remainingMs(), qint64(300'000));
        QVERIFY(!engine().isActive());
        QCOMPARE(counts(), (QList<qint64>{1, 1, 0, 0}));
        // ...and on the next day starts counting afresh, and says so at once.
        advance(24 * 3600 * 1000);
        relaunch();
        QCOMPARE(counts(), (QList<qint64>{0, 0, 0, 0}));
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Pomodoro"));
        QCOMPARE(m_pushes, 3);
    }

    void settingsAreClampedAndResetTheTimer_data()
    {
        QTest::addColumn<qint64>("given");
        QTest::addColumn<qint64>("duration");
        QTest::addColumn<qint64>("interval");
        const qint64 max = PomodoroService::MaxDurationMinutes;
        QTest::newRow("zero") << qint64(0) << qint64(1) << qint64(2);
        QTest::newRow("negative") << qint64(-30) << qint64(1) << qint64(2);
        QTest::newRow("ordinary") << qint64(50) << qint64(50) << qint64(50);
        QTest::newRow("beyond range") << std::numeric_limits<qint64>::max() << max << max;
    }
    void settingsAreClampedAndResetTheTimer()
    {
        QFETCH(qint64, given);
        QFETCH(qint64, duration);
        engine().skip();
        engine().start();
        engine().updateSettings(given, given, given, given, true);
        QCOMPARE(m_pushes, 1); // written at once
        const QList<qint64> lengths{engine().pomodoroDuration(), engine().shortBreakDuration(),
                                    engine().longBreakDuration()};
        QCOMPARE(lengths, (QList<qint64>{duration, duration, duration}));
        QTEST(engine().pomodorosForLongBreak(), "interval");
        QVERIFY(!engine().isActive());
        QCOMPARE(counts(), (QList<qint64>{0, 0, 0, 0}));
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Pomodoro"));
        QCOMPARE(engine().remainingMs(), duration * 60'000);
        QCOMPARE(stored()->pomodoroDuration(), duration);
        QVERIFY(stored()->autoStart() && !stored()->isBreak());

        // A phase of the longest length still counts down without overflow.
        engine().start();
        advance(1000);
        engine().didBecomeActive();
        QCOMPARE(engine().remainingMs(), duration * 60'000 - 1000);
        engine().pause();
    }

    void autoStartStartsTheNextPhase()
    {
        engine().updateSettings({}, {}, {}, {}, true);
        engine().start();
        finishPhase();
        QVERIFY(engine().isAutoStartPending() && !engine().isActive());
        engine().pause(); // stopped already: the pending start stays
        QTRY_VERIFY_WITH_TIMEOUT(engine().isActive(), PomodoroService::AutoStartDelayMs + 2000);
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Short Break"));
        QCOMPARE(*engine().endDate(), m_time.now.addMSecs(300'000));
    }

    // The services as the app wires them: one store, one midnight and one
    // signed-in sync session.
    void aDayAcrossAllServices()
    {
        FakeSyncServer server;
        server.serveEmptyAccount();
        Preferences::setServerURLOverride(server.url().toString());
        m_keychain->stored = QByteArrayLiteral("day-token");
        restart();
        engine().bootstrap();
        m_services->auth().reload();
        QTRY_VERIFY(m_services->auth().isSignedIn());
        const auto lastPut = [&server](const QString& resource) {
            const auto all = server.requestsFor("PUT", u"/api/v1/" + resource);
            return all.isEmpty() ? QByteArray() : all.last().body;
        };
        TasksService& tasks = m_services->tasks();
        HabitsService& habits = m_services->habits();
        ModelContext& context = m_services->store().mainContext();
        tasks.bootstrap();
        habits.bootstrap();

        TaskList* list = context.fetch<TaskList>().first();
        tasks.toggleCheck(tasks.addTask("Buy milk", list, context), context);
        Habit* water = habits.createHabit("💧", "Water", "#38BDF8", 3, context);
        habits.increment(water, context);
        habits.increment(water, context);
        engine().start();
        finishPhase();
        QTRY_VERIFY(lastPut("tasks").contains(R"({"checked":true,"header":"Buy milk")"));
        QTRY_VERIFY(lastPut("habits").contains(R"("currentValue":2)"));
        QTRY_VERIFY(lastPut("pomodoro").contains(R"("pomodoroTotalCount":"1")"));
        for (const FakeSyncServer::Request& r : server.requests())
            QCOMPARE(r.header("Authorization"), QByteArrayLiteral("Bearer day-token"));

        // Midnight resets both counters, and the server hears of the timer's.
        m_services->dayReset().scheduleNext();
        m_time.now = QDateTime(QDate(2026, 5, 5), QTime(0, 0, 6));
        m_services->dayReset().fireIfDue();
        m_services->dayReset().stop();
        QCOMPARE(water->currentValue(), qint64(0));
        QTRY_VERIFY(lastPut("pomodoro").contains(R"("pomodoroTotalCount":"0")"));
    }
};

QTEST_GUILESS_MAIN(TestPomodoroService)
#include "tst_pomodoroservice.moc"
