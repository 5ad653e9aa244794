#include "AudioService.h"
#include "Clock.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "NotificationService.h"
#include "PomodoroConfig.h"
#include "PomodoroService.h"
#include "PowerService.h"
#include "SleepInhibitor.h"

#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {
constexpr qint64 focusMs = 1'500'000;

class GrantingInhibitor final : public SleepInhibitor
{
public:
    std::optional<quint32> inhibit(const QString&) override { return 7; }
    void uninhibit(quint32) override {}
};
} // namespace

class TestPomodoroService final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QDateTime m_now;
    std::unique_ptr<PomodoroService> m_engine;
    QStringList m_notices; // "title: body @ time"
    int m_pushes = 0;
    std::function<void()> m_release;
    bool m_holdIdentifier = false; // the identifier comes back only on m_release()

    PomodoroService& engine() { return *m_engine; }
    void advance(qint64 ms) { m_now = m_now.addMSecs(ms); }
    // Today's counts: focus phases towards the long break, all focus phases, breaks.
    QList<qint64> counts() const
    {
        return {m_engine->pomodoroCount(), m_engine->pomodoroTotalCount(),
                m_engine->shortBreakCount(), m_engine->longBreakCount()};
    }
    static PomodoroConfig* stored()
    {
        return DataStore::shared().mainContext().fetch<PomodoroConfig>().first();
    }

    // A new process: a fresh store context over the same file and a fresh engine.
    void relaunch()
    {
        m_engine.reset();
        QString error;
        DataStore::setShared(DataStore::open(m_dir.filePath(QStringLiteral("s.sqlite")), &error));
        QVERIFY2(error.isEmpty(), qPrintable(error));
        m_engine = PomodoroService::createForTesting();
        m_engine->setPushHandler([this] { ++m_pushes; });
        m_engine->setScheduler(
            [this](const QString& title, const QString& body, const QDateTime& fireAt, auto done) {
                m_notices << title + u": " + body + u" @ " + fireAt.toString(u"HH:mm:ss.zzz");
                m_release = [title, body, fireAt, done] {
                    QCoro::connect(NotificationService::shared().schedule(title, body, fireAt),
                                   QCoreApplication::instance(), done);
                };
                if (!m_holdIdentifier)
                    m_release();
            });
        m_engine->bootstrap();
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        PowerService::shared().setInhibitor(std::make_unique<GrantingInhibitor>());
        AudioService::shared().setMuted(false);
        Clock::setSource([this] { return m_now; });
    }

    void init()
    {
        m_now = QDateTime(QDate(2026, 5, 4), QTime(10, 0));
        DataStore::setShared(nullptr);
        QFile::remove(m_dir.filePath(QStringLiteral("s.sqlite")));
        m_notices.clear();
        m_pushes = 0;
        m_holdIdentifier = false;
        relaunch();
    }

    void cleanup()
    {
        m_engine.reset();
        NotificationService::shared().cancelAll();
    }

    void cleanupTestCase() { Clock::setSource({}); }

    void phaseEndsOnceAtItsInstantWhateverTheTicks()
    {
        QSignalSpy played(&AudioService::shared(), &AudioService::played);
        engine().start();
        QCOMPARE(*engine().endDate(), m_now.addMSecs(focusMs));
        QCOMPARE(m_notices, QStringList{QStringLiteral(
                                "Pomodoro Complete!: Time for a break. @ 10:25:00.000")});
        QVERIFY(engine().scheduledNotificationId().has_value());
        QVERIFY(PowerService::shared().isHeld());

        advance(focusMs - 1);
        QTRY_COMPARE(engine().remainingMs(), qint64(1));
        QVERIFY(engine().isActive());
        // One tick arriving long after the end finishes one phase; a wake-up then replays nothing.
        advance(37'000);
        QTRY_VERIFY(!engine().isActive());
        engine().didBecomeActive();
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Short Break"));
        QCOMPARE(engine().remainingMs(), qint64(300'000));
        QCOMPARE(engine().pomodoroTotalCount(), qint64(1));
        QCOMPARE(played.count(), 1);
        QCOMPARE(played[0][0].value<AudioService::Sound>(), AudioService::Sound::FinishPomodoro);
        QVERIFY(NotificationService::shared().pendingIDs().isEmpty());
        QVERIFY(!engine().scheduledNotificationId());
        QVERIFY(!PowerService::shared().isHeld());

        // A break has its own notice and leaves the display alone; slept through
        // for hours, it finishes once on wake and the next focus waits.
        engine().start();
        QCOMPARE(m_notices.last(),
                 QStringLiteral("Short Break Complete!: Back to work! @ 10:30:36.999"));
        QVERIFY(!PowerService::shared().isHeld());
        advance(2 * 3600 * 1000);
        engine().didBecomeActive();
        engine().didBecomeActive();
        QVERIFY(!engine().isActive());
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Pomodoro"));
        QCOMPARE(counts(), (QList<qint64>{1, 1, 1, 0}));
        QCOMPARE(played.count(), 2);
    }

    void pauseResumeAndStartRules()
    {
        engine().start();
        const QDateTime end = *engine().endDate();
        engine().start(); // running already
        QCOMPARE(*engine().endDate(), end);

        advance(10'250);
        engine().pause();
        QVERIFY(!engine().isActive() && !engine().endDate());
        QCOMPARE(engine().remainingMs(), focusMs - 10'250);
        advance(3600 * 1000); // paused time does not count
        engine().start();
        QCOMPARE(*engine().endDate(), m_now.addMSecs(focusMs - 10'250));

        engine().reset();
        QCOMPARE(engine().remainingMs(), focusMs);
        engine().start();
        QCOMPARE(*engine().endDate(), m_now.addMSecs(focusMs));
    }

    void phaseSequenceAndLongBreakRule()
    {
        QSignalSpy played(&AudioService::shared(), &AudioService::played);
        QStringList seen; // phase, focus phases towards the long break, minutes left
        for (int i = 0; i < 9; ++i) {
            // Alternate skipping and finishing: both count the same.
            if (i % 2 == 0) {
                engine().skip();
            } else {
                engine().start();
                advance(engine().remainingMs());
                engine().didBecomeActive();
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
        QTest::addColumn<QString>("operation");
        QTest::addColumn<bool>("late");
        for (const char* op : {"pause", "reset", "skip", "finish", "settings"}) {
            QTest::addRow("%s", op) << QString::fromLatin1(op) << false;
            QTest::addRow("%s, identifier late", op) << QString::fromLatin1(op) << true;
        }
    }

    void notificationWithdrawnWhenThePhaseStops()
    {
        QFETCH(QString, operation);
        QFETCH(bool, late);
        m_holdIdentifier = late;
        engine().start();
        QCOMPARE(NotificationService::shared().pendingIDs().size(), late ? 0 : 1);
        if (operation == QLatin1String("pause"))
            engine().pause();
        else if (operation == QLatin1String("reset"))
            engine().reset();
        else if (operation == QLatin1String("skip"))
            engine().skip();
        else if (operation == QLatin1String("settings"))
            engine().updateSettings({}, {}, {}, {}, {});
        else {
            advance(focusMs);
            engine().didBecomeActive();
        }
        QVERIFY(!engine().isActive());
        if (late)
            m_release();
        QVERIFY(NotificationService::shared().pendingIDs().isEmpty());
        QVERIFY(!engine().scheduledNotificationId());
    }

    void dayResetAtMidnightAndOnRelaunch()
    {
        m_now = QDateTime(QDate(2026, 5, 4), QTime(23, 58));
        for (int i = 0; i < 3; ++i)
            engine().skip(); // to a short break, counts 2/2/1
        engine().start();
        const QDateTime end = *engine().endDate();
        DailyResetService::shared().scheduleNext();
        m_now = QDateTime(QDate(2026, 5, 5), QTime(0, 0, 6));
        DailyResetService::shared().fireIfDue();
        DailyResetService::shared().stop();
        // Counts and phase start afresh; the running countdown keeps its end.
        QCOMPARE(counts(), (QList<qint64>{0, 0, 0, 0}));
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Pomodoro"));
        QVERIFY(engine().isActive());
        QCOMPARE(*engine().endDate(), end);
        QTRY_COMPARE(engine().remainingMs(), m_now.msecsTo(end));
        // Stored at once, so a relaunch today does not count the day again.
        QCOMPARE(stored()->firstPomodoroCountDate(), m_now);
        QCOMPARE(stored()->pomodoroTotalCount(), qint64(0));

        // A relaunch restores the stored phase and counts, stopped...
        engine().skip();           // Short Break
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
        QTest::newRow("zero") << qint64(0) << qint64(1) << qint64(2);
        QTest::newRow("negative") << qint64(-30) << qint64(1) << qint64(2);
        QTest::newRow("ordinary") << qint64(50) << qint64(50) << qint64(50);
        QTest::newRow("beyond range")
            << std::numeric_limits<qint64>::max() << PomodoroService::MaxDurationMinutes
            << PomodoroService::MaxDurationMinutes;
    }

    void settingsAreClampedAndResetTheTimer()
    {
        QFETCH(qint64, given);
        engine().skip();
        engine().start();
        engine().updateSettings(given, given, given, given, true);
        QCOMPARE(m_pushes, 1); // written at once
        QTEST(engine().pomodoroDuration(), "duration");
        QTEST(engine().shortBreakDuration(), "duration");
        QTEST(engine().longBreakDuration(), "duration");
        QTEST(engine().pomodorosForLongBreak(), "interval");
        QVERIFY(!engine().isActive());
        QCOMPARE(counts(), (QList<qint64>{0, 0, 0, 0}));
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Pomodoro"));
        QCOMPARE(engine().remainingMs(), engine().pomodoroDuration() * 60'000);
        QCOMPARE(stored()->pomodoroDuration(), engine().pomodoroDuration());
        QVERIFY(stored()->autoStart() && !stored()->isBreak());

        // A phase of the longest length still counts down without overflow.
        engine().start();
        advance(1000);
        engine().didBecomeActive();
        QCOMPARE(engine().remainingMs(), engine().pomodoroDuration() * 60'000 - 1000);
        engine().pause();
    }

    void autoStartStartsTheNextPhase()
    {
        engine().updateSettings({}, {}, {}, {}, true);
        engine().start();
        advance(focusMs);
        engine().didBecomeActive();
        QVERIFY(engine().isAutoStartPending() && !engine().isActive());
        engine().pause(); // stopped already: the pending start stays
        QTRY_VERIFY_WITH_TIMEOUT(engine().isActive(), PomodoroService::AutoStartDelayMs + 2000);
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Short Break"));
        QCOMPARE(*engine().endDate(), m_now.addMSecs(300'000));
    }
};

QTEST_GUILESS_MAIN(TestPomodoroService)
#include "tst_pomodoroservice.moc"
