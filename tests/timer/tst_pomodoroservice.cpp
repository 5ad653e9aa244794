#include "AudioService.h"
#include "Clock.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "NotificationBackend.h"
#include "NotificationService.h"
#include "PomodoroConfig.h"
#include "PomodoroService.h"
#include "PowerService.h"
#include "SleepInhibitor.h"

#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {
using Phase = PomodoroService::Phase;
constexpr qint64 focusMs = 1'500'000;

class SilentBackend final : public NotificationBackend
{
public:
    QCoro::Task<QString> notify(const QString&, const QString&) override { co_return QString(); }
    QCoro::Task<QString> checkServer() override { co_return QString(); }
};

class CountingInhibitor final : public SleepInhibitor
{
public:
    std::optional<quint32> inhibit(const QString& reason) override
    {
        ++holds;
        lastReason = reason;
        return 7;
    }
    void uninhibit(quint32) override { ++releases; }
    int holds = 0;
    int releases = 0;
    QString lastReason;
};

struct Scheduled
{
    QString title;
    QString body;
    QDateTime fireAt;
};
} // namespace

class TestPomodoroService final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QDateTime m_now;
    std::unique_ptr<PomodoroService> m_engine;
    CountingInhibitor* m_inhibitor = nullptr;
    QList<Scheduled> m_scheduled;
    int m_pushes = 0;
    std::function<void()> m_release;
    bool m_holdIdentifier = false; // the identifier comes back only on m_release()

    QString storePath() const { return m_dir.filePath(QStringLiteral("store.sqlite")); }

    void openStore()
    {
        QString error;
        DataStore::setShared(DataStore::open(storePath(), &error));
        QVERIFY2(error.isEmpty(), qPrintable(error));
    }

    PomodoroService& engine() { return *m_engine; }

    void newEngine()
    {
        m_engine = PomodoroService::createForTesting();
        m_engine->setPushHandler([this] { ++m_pushes; });
        m_engine->setScheduler(
            [this](const QString& title, const QString& body, const QDateTime& fireAt, auto done) {
                m_scheduled.append({title, body, fireAt});
                m_release = [title, body, fireAt, done] {
                    QCoro::connect(NotificationService::shared().schedule(title, body, fireAt),
                                   QCoreApplication::instance(), done);
                };
                if (!m_holdIdentifier)
                    m_release();
            });
        m_engine->bootstrap();
    }

    void advance(qint64 ms) { m_now = m_now.addMSecs(ms); }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        NotificationService::shared().setBackend(std::make_unique<SilentBackend>());
        auto inhibitor = std::make_unique<CountingInhibitor>();
        m_inhibitor = inhibitor.get();
        PowerService::shared().setInhibitor(std::move(inhibitor));
        AudioService::shared().setMuted(false);
        Clock::setSource([this] { return m_now; });
    }

    void init()
    {
        m_now = QDateTime(QDate(2026, 5, 4), QTime(10, 0));
        QFile::remove(storePath());
        openStore();
        m_scheduled.clear();
        m_pushes = 0;
        m_holdIdentifier = false;
        newEngine();
    }

    void cleanup()
    {
        m_engine.reset();
        NotificationService::shared().cancelAll();
    }

    void cleanupTestCase() { Clock::setSource({}); }

    void phaseEndsAtItsInstantWhateverTheTicks()
    {
        QSignalSpy played(&AudioService::shared(), &AudioService::played);
        const QDateTime started = m_now;
        engine().start();
        QCOMPARE(*engine().endDate(), started.addMSecs(focusMs));
        QCOMPARE(m_scheduled.size(), 1);
        QCOMPARE(m_scheduled[0].title, QStringLiteral("Pomodoro Complete!"));
        QCOMPARE(m_scheduled[0].body, QStringLiteral("Time for a break."));
        QCOMPARE(m_scheduled[0].fireAt, started.addMSecs(focusMs));
        QVERIFY(engine().scheduledNotificationId().has_value());

        advance(focusMs - 1);
        QTRY_COMPARE(engine().remainingMs(), qint64(1));
        QVERIFY(engine().isActive());
        // One tick arriving long after the end finishes one phase, once.
        advance(37'000);
        QTRY_VERIFY(!engine().isActive());
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Short Break"));
        QCOMPARE(engine().remainingMs(), qint64(300'000));
        QCOMPARE(engine().pomodoroTotalCount(), qint64(1));
        QCOMPARE(played.count(), 1);
        QCOMPARE(played[0][0].value<AudioService::Sound>(), AudioService::Sound::FinishPomodoro);
        QVERIFY(NotificationService::shared().pendingIDs().isEmpty());
        QVERIFY(!engine().scheduledNotificationId());

        // The break's notice says the other body.
        engine().start();
        QCOMPARE(m_scheduled.last().title, QStringLiteral("Short Break Complete!"));
        QCOMPARE(m_scheduled.last().body, QStringLiteral("Back to work!"));
    }

    void sleepFinishesOnePhaseOnWake()
    {
        engine().start();
        advance(2 * 3600 * 1000);
        engine().didBecomeActive();
        QVERIFY(!engine().isActive());
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Short Break"));
        QCOMPARE(engine().remainingMs(), qint64(300'000));
        QCOMPARE(engine().pomodoroTotalCount(), qint64(1));
        QCOMPARE(engine().shortBreakCount(), qint64(0));
        QVERIFY(!engine().isAutoStartPending());
        engine().didBecomeActive();
        QCOMPARE(engine().pomodoroTotalCount(), qint64(1));
    }

    void pauseResumeAndStartRules()
    {
        engine().start();
        const QDateTime end = *engine().endDate();
        engine().start(); // running already
        QCOMPARE(*engine().endDate(), end);

        advance(10'250);
        engine().pause();
        QVERIFY(!engine().isActive());
        QCOMPARE(engine().remainingMs(), focusMs - 10'250);
        QVERIFY(!engine().endDate());

        advance(3600 * 1000); // paused time does not count
        engine().start();
        QCOMPARE(*engine().endDate(), m_now.addMSecs(focusMs - 10'250));

        engine().reset();
        QCOMPARE(engine().remainingMs(), focusMs);
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Pomodoro"));
        engine().start();
        QCOMPARE(*engine().endDate(), m_now.addMSecs(focusMs));
    }

    void phaseSequenceAndLongBreakRule()
    {
        QSignalSpy played(&AudioService::shared(), &AudioService::played);
        const QStringList expected{QStringLiteral("Short Break"), QStringLiteral("Pomodoro"),
                                   QStringLiteral("Short Break"), QStringLiteral("Pomodoro"),
                                   QStringLiteral("Short Break"), QStringLiteral("Pomodoro"),
                                   QStringLiteral("Long Break"),  QStringLiteral("Pomodoro"),
                                   QStringLiteral("Short Break")};
        for (int i = 0; i < expected.size(); ++i) {
            // Alternate skipping and finishing: both count the same.
            if (i % 2 == 0) {
                engine().skip();
            } else {
                engine().start();
                advance(engine().remainingMs());
                engine().didBecomeActive();
            }
            QCOMPARE(engine().phaseLabel(), expected[i]);
            QCOMPARE(engine().remainingMs(), engine().currentPhaseDurationMs());
            if (expected[i] == QStringLiteral("Long Break"))
                QCOMPARE(engine().pomodoroCount(), qint64(4));
        }
        QCOMPARE(engine().pomodoroCount(), qint64(1));
        QCOMPARE(engine().pomodoroTotalCount(), qint64(5));
        QCOMPARE(engine().shortBreakCount(), qint64(3));
        QCOMPARE(engine().longBreakCount(), qint64(1));
        QCOMPARE(played.count(), 4); // finishes only; skips are silent
        QCOMPARE(engine().currentPhaseDurationMs(), qint64(300'000));
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
        QCOMPARE(m_scheduled.size(), 1);
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
        if (late) {
            m_release();
        }
        QVERIFY(NotificationService::shared().pendingIDs().isEmpty());
        QVERIFY(!engine().scheduledNotificationId());
    }

    void displayHeldOnlyDuringFocus()
    {
        const int holds = m_inhibitor->holds;
        engine().start();
        QVERIFY(PowerService::shared().isHeld());
        QCOMPARE(m_inhibitor->lastReason, QStringLiteral("Tidewell focus session"));
        engine().skip();
        QVERIFY(!PowerService::shared().isHeld());
        engine().start(); // a short break
        QVERIFY(!PowerService::shared().isHeld());
        QCOMPARE(m_inhibitor->holds, holds + 1);
        engine().pause();
    }

    void midnightDuringABreakZeroesCountsKeepsCountdown()
    {
        m_now = QDateTime(QDate(2026, 5, 4), QTime(23, 58));
        engine().skip();
        engine().skip();
        engine().skip(); // a short break, counts 2/2/1
        engine().start();
        const QDateTime end = *engine().endDate();
        DailyResetService::shared().scheduleNext();
        m_now = QDateTime(QDate(2026, 5, 5), QTime(0, 0, 6));
        DailyResetService::shared().fireIfDue();
        QCOMPARE(engine().pomodoroCount(), qint64(0));
        QCOMPARE(engine().pomodoroTotalCount(), qint64(0));
        QCOMPARE(engine().shortBreakCount(), qint64(0));
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Pomodoro"));
        QVERIFY(engine().isActive());
        QCOMPARE(*engine().endDate(), end);
        QTRY_COMPARE(engine().remainingMs(), m_now.msecsTo(end));
        auto* cfg = DataStore::shared().mainContext().fetch<PomodoroConfig>().first();
        QCOMPARE(cfg->firstPomodoroCountDate(), m_now);
        QCOMPARE(cfg->pomodoroTotalCount(), qint64(0));
        DailyResetService::shared().stop();
    }

    void restartRestoresStoredPhaseStopped()
    {
        engine().skip(); // Short Break, counts 1/1
        engine().start();
        advance(42'000);
        QTRY_COMPARE(m_pushes, 1); // the debounced write, a second after the last change
        QCOMPARE(m_pushes, 1);

        m_engine.reset();
        openStore(); // a new process: a fresh context over the same file
        newEngine();
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Short Break"));
        QCOMPARE(engine().remainingMs(), qint64(300'000));
        QVERIFY(!engine().isActive());
        QCOMPARE(engine().pomodoroCount(), qint64(1));
        QCOMPARE(engine().pomodoroTotalCount(), qint64(1));

        // The next day's launch starts counting afresh, and says so at once.
        m_engine.reset();
        openStore();
        advance(24 * 3600 * 1000);
        const int pushes = m_pushes;
        newEngine();
        QCOMPARE(engine().pomodoroTotalCount(), qint64(0));
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Pomodoro"));
        QCOMPARE(m_pushes, pushes + 1);
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
        const int pushes = m_pushes;
        engine().updateSettings(given, given, given, given, true);
        QCOMPARE(m_pushes, pushes + 1); // written at once
        QTEST(engine().pomodoroDuration(), "duration");
        QTEST(engine().shortBreakDuration(), "duration");
        QTEST(engine().longBreakDuration(), "duration");
        QTEST(engine().pomodorosForLongBreak(), "interval");
        QVERIFY(engine().autoStart());
        QVERIFY(!engine().isActive());
        QCOMPARE(engine().pomodoroCount(), qint64(0));
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Pomodoro"));
        QCOMPARE(engine().remainingMs(), engine().pomodoroDuration() * 60'000);
        auto* cfg = DataStore::shared().mainContext().fetch<PomodoroConfig>().first();
        QCOMPARE(cfg->pomodoroDuration(), engine().pomodoroDuration());
        QVERIFY(cfg->autoStart());
        QVERIFY(!cfg->isBreak());

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
        QVERIFY(engine().isAutoStartPending());
        QVERIFY(!engine().isActive());
        engine().pause(); // stopped already: the pending start stays
        QVERIFY(engine().isAutoStartPending());
        QTRY_VERIFY_WITH_TIMEOUT(engine().isActive(), PomodoroService::AutoStartDelayMs + 2000);
        QCOMPARE(engine().phaseLabel(), QStringLiteral("Short Break"));
        QCOMPARE(*engine().endDate(), m_now.addMSecs(300'000));
    }
};

QTEST_GUILESS_MAIN(TestPomodoroService)
#include "tst_pomodoroservice.moc"
