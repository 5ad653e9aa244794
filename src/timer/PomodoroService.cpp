#include "PomodoroService.h"

#include "AudioService.h"
#include "Clock.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "Debouncer.h"
#include "FocusSession.h"
#include "FocusSessionLog.h"
#include "ModelContext.h"
#include "NotificationService.h"
#include "Notify.h"
#include "PomodoroConfig.h"
#include "PowerService.h"

#include <QTimer>

#include <algorithm>

namespace {
const QString debounceKey = QStringLiteral("pomodoro");

qint64 clampMinutes(qint64 minutes, qint64 floor)
{
    return std::clamp(minutes, floor, PomodoroService::MaxDurationMinutes);
}

// Counters from the server could be anything; keep them where increments cannot overflow.
qint64 clampCount(qint64 count)
{
    return std::clamp<qint64>(count, 0, qint64(1) << 40);
}
} // namespace

PomodoroService::PomodoroService(Collaborators with, QObject* parent)
    : QObject(parent)
    , m_with(std::move(with))
    , m_sessions(m_with.store.mainContext())
    , m_endNotice(m_with.schedule, m_with.notifications)
    , m_debouncer(new Debouncer(this))
{}

QString PomodoroService::label(Phase phase)
{
    switch (phase) {
    case Phase::ShortBreak:
        return QStringLiteral("Short Break");
    case Phase::LongBreak:
        return QStringLiteral("Long Break");
    case Phase::Focus:
        break;
    }
    return QStringLiteral("Pomodoro");
}

PomodoroService::~PomodoroService()
{
    // Quitting ends the phase: the app does not resume it on the next start.
    m_sessions.close(FocusSession::Abandoned, m_with.clock.now());
}

void PomodoroService::openSession(const QDateTime& now)
{
    const QString phase = m_phase == Phase::ShortBreak  ? FocusSession::ShortBreak
                          : m_phase == Phase::LongBreak ? FocusSession::LongBreak
                                                        : FocusSession::Focus;
    m_sessions.resume(phase, currentPhaseDurationMs(), now);
}

qint64 PomodoroService::currentPhaseDurationMs() const
{
    qint64 minutes = m_pomodoroDuration;
    if (m_phase == Phase::ShortBreak)
        minutes = m_shortBreakDuration;
    else if (m_phase == Phase::LongBreak)
        minutes = m_longBreakDuration;
    return clampMinutes(minutes, 1) * 60'000;
}

bool PomodoroService::isAutoStartPending() const
{
    return m_autoStartTimer && m_autoStartTimer->isActive();
}

void PomodoroService::bootstrap()
{
    if (m_bootstrapped)
        return;
    m_bootstrapped = true;
    PomodoroConfig* cfg = loadOrCreateConfig(true);
    applyConfig(*cfg);
    checkDayReset(*cfg, false);

    m_with.dayReset.registerHandler([self = QPointer<PomodoroService>(this)] {
        if (!self)
            return;
        self->checkDayReset(*self->loadOrCreateConfig(true), true);
    });
}

PomodoroConfig* PomodoroService::loadOrCreateConfig(bool saveNew)
{
    ModelContext& context = m_with.store.mainContext();
    const QList<PomodoroConfig*> existing = context.fetch<PomodoroConfig>();
    if (!existing.isEmpty())
        return existing.first();
    PomodoroConfig* cfg = PomodoroConfig::createDefault(m_with.clock.now());
    context.insert(cfg);
    if (saveNew)
        context.save();
    return cfg;
}

void PomodoroService::applyConfig(const PomodoroConfig& cfg)
{
    Notify::set(this, m_pomodoroDuration, clampMinutes(cfg.pomodoroDuration(), 1),
                &PomodoroService::pomodoroDurationChanged);
    Notify::set(this, m_shortBreakDuration, clampMinutes(cfg.shortBreakDuration(), 1),
                &PomodoroService::shortBreakDurationChanged);
    Notify::set(this, m_longBreakDuration, clampMinutes(cfg.longBreakDuration(), 1),
                &PomodoroService::longBreakDurationChanged);
    Notify::set(this, m_pomodorosForLongBreak, clampMinutes(cfg.pomodorosForLongBreak(), 1),
                &PomodoroService::pomodorosForLongBreakChanged);
    Notify::set(this, m_autoStart, cfg.autoStart(), &PomodoroService::autoStartChanged);
    Notify::set(this, m_pomodoroCount, clampCount(cfg.pomodoroCount()),
                &PomodoroService::pomodoroCountChanged);
    Notify::set(this, m_pomodoroTotalCount, clampCount(cfg.pomodoroTotalCount()),
                &PomodoroService::pomodoroTotalCountChanged);
    Notify::set(this, m_shortBreakCount, clampCount(cfg.shortBreakCount()),
                &PomodoroService::shortBreakCountChanged);
    Notify::set(this, m_longBreakCount, clampCount(cfg.longBreakCount()),
                &PomodoroService::longBreakCountChanged);
    Notify::set(this, m_phase,
                cfg.isLongBreak()    ? Phase::LongBreak
                : cfg.isShortBreak() ? Phase::ShortBreak
                                     : Phase::Focus,
                &PomodoroService::phaseChanged);
    Notify::set(this, m_remainingMs, currentPhaseDurationMs(),
                &PomodoroService::remainingMsChanged);
}

void PomodoroService::checkDayReset(PomodoroConfig& cfg, bool force)
{
    const QDateTime now = m_with.clock.now();
    if (!force && cfg.firstPomodoroCountDate().toLocalTime().date() == now.toLocalTime().date())
        return;
    startDayOver();
    // A running countdown is left alone: the next tick puts its time back.
    cfg.setFirstPomodoroCountDate(now);
    persistImmediate();
}

void PomodoroService::startDayOver()
{
    Notify::set(this, m_pomodoroCount, qint64(0), &PomodoroService::pomodoroCountChanged);
    Notify::set(this, m_pomodoroTotalCount, qint64(0), &PomodoroService::pomodoroTotalCountChanged);
    Notify::set(this, m_shortBreakCount, qint64(0), &PomodoroService::shortBreakCountChanged);
    Notify::set(this, m_longBreakCount, qint64(0), &PomodoroService::longBreakCountChanged);
    Notify::set(this, m_phase, Phase::Focus, &PomodoroService::phaseChanged);
    Notify::set(this, m_remainingMs, currentPhaseDurationMs(),
                &PomodoroService::remainingMsChanged);
}

qint64 PomodoroService::msUntilEnd() const
{
    // msecsTo already truncates; the clamp keeps a far-away instant in range.
    return std::clamp<qint64>(m_with.clock.now().msecsTo(*m_endDate), -MaxDurationMinutes * 60'000,
                              MaxDurationMinutes * 60'000);
}

void PomodoroService::start()
{
    if (m_isActive)
        return;
    const qint64 full = currentPhaseDurationMs();
    const qint64 length = (m_remainingMs >= 1 && m_remainingMs < full) ? m_remainingMs : full;
    // One instant for both, so a phase run to its end counts its full length.
    const QDateTime now = m_with.clock.now();
    m_endDate = now.addMSecs(length);
    openSession(now);
    Notify::set(this, m_isActive, true, &PomodoroService::isActiveChanged);
    startTick();
    if (m_phase == Phase::Focus)
        m_with.power.acquire(QStringLiteral("Tidewell focus session"));
    scheduleEndNotification();
    persistDebounced();
}

void PomodoroService::startTick()
{
    stopTick();
    m_tickTimer = new QTimer(this);
    m_tickTimer->setInterval(TickIntervalMs);
    connect(m_tickTimer, &QTimer::timeout, this, &PomodoroService::tick);
    m_tickTimer->start();
}

void PomodoroService::stopTick()
{
    delete m_tickTimer;
    m_tickTimer = nullptr;
}

void PomodoroService::tick()
{
    if (!m_isActive || !m_endDate)
        return;
    const qint64 ms = msUntilEnd();
    if (ms < 1) {
        Notify::set(this, m_remainingMs, qint64(0), &PomodoroService::remainingMsChanged);
        handleFinish();
        return;
    }
    Notify::set(this, m_remainingMs, ms, &PomodoroService::remainingMsChanged);
}

void PomodoroService::stopCountdown()
{
    // A phase handled late (a suspended machine) ran only until its end instant.
    const QDateTime now = m_with.clock.now();
    m_sessions.accrue(m_endDate ? std::min(now, *m_endDate) : now);
    Notify::set(this, m_isActive, false, &PomodoroService::isActiveChanged);
    m_endDate.reset();
    stopTick();
    m_with.power.release();
    m_endNotice.withdraw();
}

void PomodoroService::toggle()
{
    if (m_isActive)
        pause();
    else
        start();
}

void PomodoroService::pause()
{
    if (!m_isActive)
        return;
    if (m_endDate)
        Notify::set(this, m_remainingMs, std::max<qint64>(msUntilEnd(), 0),
                    &PomodoroService::remainingMsChanged);
    stopCountdown();
    delete m_autoStartTimer;
    m_autoStartTimer = nullptr;
    persistDebounced();
}

void PomodoroService::reset()
{
    pause();
    m_sessions.close(FocusSession::Reset, m_with.clock.now());
    Notify::set(this, m_remainingMs, currentPhaseDurationMs(),
                &PomodoroService::remainingMsChanged);
    persistDebounced();
}

void PomodoroService::skip()
{
    if (m_isActive)
        pause();
    m_sessions.close(FocusSession::Skipped, m_with.clock.now());
    advancePhase();
    Notify::set(this, m_remainingMs, currentPhaseDurationMs(),
                &PomodoroService::remainingMsChanged);
    persistDebounced();
}

void PomodoroService::handleFinish()
{
    const QDateTime end = m_endDate ? std::min(*m_endDate, m_with.clock.now()) : m_with.clock.now();
    stopCountdown();
    m_sessions.close(FocusSession::Completed, end);
    m_with.audio.play(AudioService::Sound::FinishPomodoro);
    advancePhase();
    Notify::set(this, m_remainingMs, currentPhaseDurationMs(),
                &PomodoroService::remainingMsChanged);
    persistDebounced();
    if (m_autoStart)
        scheduleAutoStart();
}

void PomodoroService::advancePhase()
{
    switch (m_phase) {
    case Phase::Focus:
        Notify::set(this, m_pomodoroCount, m_pomodoroCount + 1,
                    &PomodoroService::pomodoroCountChanged);
        Notify::set(this, m_pomodoroTotalCount, m_pomodoroTotalCount + 1,
                    &PomodoroService::pomodoroTotalCountChanged);
        Notify::set(this, m_phase,
                    m_pomodoroCount < m_pomodorosForLongBreak ? Phase::ShortBreak
                                                              : Phase::LongBreak,
                    &PomodoroService::phaseChanged);
        break;
    case Phase::ShortBreak:
        Notify::set(this, m_shortBreakCount, m_shortBreakCount + 1,
                    &PomodoroService::shortBreakCountChanged);
        Notify::set(this, m_phase, Phase::Focus, &PomodoroService::phaseChanged);
        break;
    case Phase::LongBreak:
        Notify::set(this, m_longBreakCount, m_longBreakCount + 1,
                    &PomodoroService::longBreakCountChanged);
        Notify::set(this, m_pomodoroCount, qint64(0), &PomodoroService::pomodoroCountChanged);
        Notify::set(this, m_phase, Phase::Focus, &PomodoroService::phaseChanged);
        break;
    }
}

void PomodoroService::scheduleAutoStart()
{
    delete m_autoStartTimer;
    m_autoStartTimer = new QTimer(this);
    m_autoStartTimer->setSingleShot(true);
    connect(m_autoStartTimer, &QTimer::timeout, this, &PomodoroService::start);
    m_autoStartTimer->start(AutoStartDelayMs);
}

void PomodoroService::scheduleEndNotification()
{
    if (!m_endDate)
        return;
    m_endNotice.schedule(label(m_phase) + QStringLiteral(" Complete!"),
                         m_phase == Phase::Focus ? QStringLiteral("Time for a break.")
                                                 : QStringLiteral("Back to work!"),
                         *m_endDate);
}

void PomodoroService::updateSettings(std::optional<qint64> pomodoro,
                                     std::optional<qint64> shortBreak,
                                     std::optional<qint64> longBreak,
                                     std::optional<qint64> pomodorosForLong,
                                     std::optional<bool> autoStart)
{
    pause(); // the save below replaces the one it schedules
    m_sessions.close(FocusSession::Reset, m_with.clock.now());
    Notify::set(this, m_pomodoroDuration, clampMinutes(pomodoro.value_or(m_pomodoroDuration), 1),
                &PomodoroService::pomodoroDurationChanged);
    Notify::set(this, m_shortBreakDuration,
                clampMinutes(shortBreak.value_or(m_shortBreakDuration), 1),
                &PomodoroService::shortBreakDurationChanged);
    Notify::set(this, m_longBreakDuration, clampMinutes(longBreak.value_or(m_longBreakDuration), 1),
                &PomodoroService::longBreakDurationChanged);
    Notify::set(this, m_pomodorosForLongBreak,
                clampMinutes(pomodorosForLong.value_or(m_pomodorosForLongBreak), 2),
                &PomodoroService::pomodorosForLongBreakChanged);
    if (autoStart)
        Notify::set(this, m_autoStart, *autoStart, &PomodoroService::autoStartChanged);
    startDayOver();
    persistImmediate();
}

void PomodoroService::reloadFromStore()
{
    reset();
    m_debouncer->cancel(debounceKey);
    applyConfig(*loadOrCreateConfig(true));
}

void PomodoroService::didBecomeActive()
{
    if (!m_isActive || !m_endDate)
        return;
    const qint64 ms = msUntilEnd();
    Notify::set(this, m_remainingMs, std::max<qint64>(ms, 0), &PomodoroService::remainingMsChanged);
    if (ms < 1)
        handleFinish();
}

void PomodoroService::writeToStore()
{
    PomodoroConfig* cfg = loadOrCreateConfig(false);
    cfg->setPomodoroDuration(m_pomodoroDuration);
    cfg->setShortBreakDuration(m_shortBreakDuration);
    cfg->setLongBreakDuration(m_longBreakDuration);
    cfg->setPomodorosForLongBreak(m_pomodorosForLongBreak);
    cfg->setAutoStart(m_autoStart);
    cfg->setPomodoroCount(m_pomodoroCount);
    cfg->setPomodoroTotalCount(m_pomodoroTotalCount);
    cfg->setShortBreakCount(m_shortBreakCount);
    cfg->setLongBreakCount(m_longBreakCount);
    const Phase phase = m_phase;
    cfg->setIsBreak(phase != Phase::Focus);
    cfg->setIsShortBreak(phase == Phase::ShortBreak);
    cfg->setIsLongBreak(phase == Phase::LongBreak);
    m_with.store.mainContext().save();
    QCoro::connect(m_with.push(), this, [] {});
}

void PomodoroService::persistDebounced()
{
    m_debouncer->schedule(debounceKey, std::chrono::seconds(1), [this] { writeToStore(); });
}

void PomodoroService::persistImmediate()
{
    m_debouncer->cancel(debounceKey);
    writeToStore();
}
