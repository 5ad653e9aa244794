#pragma once

#include "FocusSessionLog.h"
#include "PhaseEndNotice.h"

#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class AudioService;
class Clock;
class DailyResetService;
class DataStore;
class Debouncer;
class NotificationService;
class PowerService;
class PomodoroConfig;
class QTimer;

// The focus timer: focus phases alternating with short and long breaks, counted
// per day. A running phase is measured against its wall-clock end instant, never
// by counting ticks, so a late tick or a suspended machine cannot stretch it.
class PomodoroService final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(qint64 remainingMs READ remainingMs NOTIFY remainingMsChanged)
    Q_PROPERTY(bool isActive READ isActive NOTIFY isActiveChanged)
    Q_PROPERTY(Phase phase READ currentPhase NOTIFY phaseChanged)
    Q_PROPERTY(QString phaseLabel READ phaseLabel NOTIFY phaseChanged)
    Q_PROPERTY(qint64 pomodoroCount READ pomodoroCount NOTIFY pomodoroCountChanged)
    Q_PROPERTY(qint64 pomodoroTotalCount READ pomodoroTotalCount NOTIFY pomodoroTotalCountChanged)
    Q_PROPERTY(qint64 shortBreakCount READ shortBreakCount NOTIFY shortBreakCountChanged)
    Q_PROPERTY(qint64 longBreakCount READ longBreakCount NOTIFY longBreakCountChanged)
    Q_PROPERTY(qint64 pomodoroDuration READ pomodoroDuration NOTIFY pomodoroDurationChanged)
    Q_PROPERTY(qint64 shortBreakDuration READ shortBreakDuration NOTIFY shortBreakDurationChanged)
    Q_PROPERTY(qint64 longBreakDuration READ longBreakDuration NOTIFY longBreakDurationChanged)
    Q_PROPERTY(
        qint64 pomodorosForLongBreak READ pomodorosForLongBreak NOTIFY pomodorosForLongBreakChanged)
    Q_PROPERTY(bool autoStart READ autoStart NOTIFY autoStartChanged)

public:
    enum class Phase { Focus, ShortBreak, LongBreak };
    Q_ENUM(Phase)

    // Longest phase accepted, in minutes (a year); longer values from the store or
    // the server are cut to this so no millisecond arithmetic can overflow.
    static constexpr qint64 MaxDurationMinutes = 525'600;
    static constexpr int TickIntervalMs = 200;
    static constexpr int AutoStartDelayMs = 5000;

    using Scheduler = PhaseEndNotice::Scheduler;

    struct Collaborators
    {
        DataStore& store;
        const Clock& clock;
        AudioService& audio;
        PowerService& power;
        NotificationService& notifications; // withdraws notices
        DailyResetService& dayReset;
        Scheduler schedule; // PhaseEndNotice::through(notifications) in the app
        // Runs after each save (the sync engine's timer push in the app).
        std::function<QCoro::Task<>()> push;
    };

    explicit PomodoroService(Collaborators with, QObject* parent = nullptr);
    // The phase's name as the timer shows it: "Pomodoro", "Short Break", "Long Break".
    static QString label(Phase phase);

    void bootstrap();
    void start();
    void pause();
    // Starts a stopped timer, pauses a running one.
    void toggle();
    void reset();
    void skip();
    void updateSettings(std::optional<qint64> pomodoro, std::optional<qint64> shortBreak,
                        std::optional<qint64> longBreak, std::optional<qint64> pomodorosForLong,
                        std::optional<bool> autoStart);
    // The settings and counters were replaced in the store (an import): a running
    // phase stops and the timer takes them up.
    void reloadFromStore();
    // The app became active: a phase that ended meanwhile finishes now, once.
    void didBecomeActive();

    Phase currentPhase() const { return m_phase; }
    qint64 currentPhaseDurationMs() const;

    qint64 remainingMs() const { return m_remainingMs; }
    bool isActive() const { return m_isActive; }
    QString phaseLabel() const { return label(m_phase); }
    qint64 pomodoroCount() const { return m_pomodoroCount; }
    qint64 pomodoroTotalCount() const { return m_pomodoroTotalCount; }
    qint64 shortBreakCount() const { return m_shortBreakCount; }
    qint64 longBreakCount() const { return m_longBreakCount; }
    qint64 pomodoroDuration() const { return m_pomodoroDuration; }
    qint64 shortBreakDuration() const { return m_shortBreakDuration; }
    qint64 longBreakDuration() const { return m_longBreakDuration; }
    qint64 pomodorosForLongBreak() const { return m_pomodorosForLongBreak; }
    bool autoStart() const { return m_autoStart; }
    std::optional<QDateTime> endDate() const { return m_endDate; }
    std::optional<QString> scheduledNotificationId() const { return m_endNotice.id(); }
    bool isAutoStartPending() const;

    ~PomodoroService() override;

signals:
    void remainingMsChanged();
    void isActiveChanged();
    void phaseChanged();
    void pomodoroCountChanged();
    void pomodoroTotalCountChanged();
    void shortBreakCountChanged();
    void longBreakCountChanged();
    void pomodoroDurationChanged();
    void shortBreakDurationChanged();
    void longBreakDurationChanged();
    void pomodorosForLongBreakChanged();
    void autoStartChanged();

private:
    PomodoroConfig* loadOrCreateConfig(bool saveNew);
    void applyConfig(const PomodoroConfig& cfg);
    void checkDayReset(PomodoroConfig& cfg, bool force);
    void startTick();
    void stopTick();
    void tick();
    void handleFinish();
    void advancePhase();
    void scheduleAutoStart();
    void scheduleEndNotification();
    // Opens (or resumes) the current phase's run in the focus session log.
    void openSession(const QDateTime& now);
    // No counts today yet, and a full focus phase ahead.
    void startDayOver();
    void stopCountdown();
    void writeToStore();
    void persistDebounced();
    void persistImmediate();
    // Milliseconds until the end instant, truncated toward zero.
    qint64 msUntilEnd() const;

    qint64 m_remainingMs = 25 * 60'000;
    bool m_isActive = false;
    Collaborators m_with;
    Phase m_phase = Phase::Focus;
    qint64 m_pomodoroCount = 0;
    qint64 m_pomodoroTotalCount = 0;
    qint64 m_shortBreakCount = 0;
    qint64 m_longBreakCount = 0;
    qint64 m_pomodoroDuration = 25;
    qint64 m_shortBreakDuration = 5;
    qint64 m_longBreakDuration = 15;
    qint64 m_pomodorosForLongBreak = 4;
    bool m_autoStart = false;
    std::optional<QDateTime> m_endDate;

    FocusSessionLog m_sessions;
    PhaseEndNotice m_endNotice;

    QTimer* m_tickTimer = nullptr;
    QTimer* m_autoStartTimer = nullptr;
    Debouncer* m_debouncer = nullptr;
    bool m_bootstrapped = false;
};
