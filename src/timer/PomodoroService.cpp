#include "PomodoroService.h"

#include "AudioService.h"
#include "Clock.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "Debouncer.h"
#include "NotificationService.h"
#include "PomodoroConfig.h"
#include "PowerService.h"
#include "SyncEngine.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QTimer>

#include <algorithm>

namespace {
const QString focusLabel = QStringLiteral("Pomodoro");
const QString shortBreakLabel = QStringLiteral("Short Break");
const QString longBreakLabel = QStringLiteral("Long Break");
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

PomodoroService& PomodoroService::shared()
{
    static auto* instance = new PomodoroService(QCoreApplication::instance());
    return *instance;
}

std::unique_ptr<PomodoroService> PomodoroService::createForTesting()
{
    return std::unique_ptr<PomodoroService>(new PomodoroService(nullptr));
}

PomodoroService::PomodoroService(QObject* parent)
    : QObject(parent)
    , m_debouncer(new Debouncer(this))
{}

PomodoroService::~PomodoroService() = default;

template <typename T>
void PomodoroService::set(T& field, const T& value, void (PomodoroService::*signal)())
{
    if (field == value)
        return;
    field = value;
    emit(this->*signal)();
}

PomodoroService::Phase PomodoroService::currentPhase() const
{
    if (m_phaseLabel == shortBreakLabel)
        return Phase::ShortBreak;
    if (m_phaseLabel == longBreakLabel)
        return Phase::LongBreak;
    return Phase::Focus;
}

qint64 PomodoroService::currentPhaseDurationMs() const
{
    qint64 minutes = m_pomodoroDuration;
    if (currentPhase() == Phase::ShortBreak)
        minutes = m_shortBreakDuration;
    else if (currentPhase() == Phase::LongBreak)
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

    DailyResetService::shared().registerHandler([self = QPointer<PomodoroService>(this)] {
        if (!self)
            return;
        self->checkDayReset(*self->loadOrCreateConfig(true), true);
    });
    if (auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        connect(app, &QGuiApplication::applicationStateChanged, this,
                [this](Qt::ApplicationState state) {
                    if (state == Qt::ApplicationActive)
                        didBecomeActive();
                });
    }
}

PomodoroConfig* PomodoroService::loadOrCreateConfig(bool saveNew)
{
    ModelContext& context = DataStore::shared().mainContext();
    const QList<PomodoroConfig*> existing = context.fetch<PomodoroConfig>();
    if (!existing.isEmpty())
        return existing.first();
    PomodoroConfig* cfg = PomodoroConfig::createDefault();
    context.insert(cfg);
    if (saveNew)
        context.save();
    return cfg;
}

void PomodoroService::applyConfig(const PomodoroConfig& cfg)
{
    set(m_pomodoroDuration, clampMinutes(cfg.pomodoroDuration(), 1),
        &PomodoroService::pomodoroDurationChanged);
    set(m_shortBreakDuration, clampMinutes(cfg.shortBreakDuration(), 1),
        &PomodoroService::shortBreakDurationChanged);
    set(m_longBreakDuration, clampMinutes(cfg.longBreakDuration(), 1),
        &PomodoroService::longBreakDurationChanged);
    set(m_pomodorosForLongBreak, clampMinutes(cfg.pomodorosForLongBreak(), 1),
        &PomodoroService::pomodorosForLongBreakChanged);
    set(m_autoStart, cfg.autoStart(), &PomodoroService::autoStartChanged);
    set(m_pomodoroCount, clampCount(cfg.pomodoroCount()), &PomodoroService::pomodoroCountChanged);
    set(m_pomodoroTotalCount, clampCount(cfg.pomodoroTotalCount()),
        &PomodoroService::pomodoroTotalCountChanged);
    set(m_shortBreakCount, clampCount(cfg.shortBreakCount()),
        &PomodoroService::shortBreakCountChanged);
    set(m_longBreakCount, clampCount(cfg.longBreakCount()),
        &PomodoroService::longBreakCountChanged);
    const QString label = cfg.isLongBreak()    ? longBreakLabel
                          : cfg.isShortBreak() ? shortBreakLabel
                                               : focusLabel;
    set(m_phaseLabel, label, &PomodoroService::phaseLabelChanged);
    set(m_remainingMs, currentPhaseDurationMs(), &PomodoroService::remainingMsChanged);
}

void PomodoroService::checkDayReset(PomodoroConfig& cfg, bool force)
{
    const QDateTime now = Clock::now();
    if (!force && cfg.firstPomodoroCountDate().toLocalTime().date() == now.toLocalTime().date())
        return;
    set(m_pomodoroCount, qint64(0), &PomodoroService::pomodoroCountChanged);
    set(m_pomodoroTotalCount, qint64(0), &PomodoroService::pomodoroTotalCountChanged);
    set(m_shortBreakCount, qint64(0), &PomodoroService::shortBreakCountChanged);
    set(m_longBreakCount, qint64(0), &PomodoroService::longBreakCountChanged);
    set(m_phaseLabel, focusLabel, &PomodoroService::phaseLabelChanged);
    set(m_remainingMs, currentPhaseDurationMs(), &PomodoroService::remainingMsChanged);
    // A running countdown is left alone: the next tick puts its time back.
    cfg.setFirstPomodoroCountDate(now);
    persistImmediate();
}

qint64 PomodoroService::msUntilEnd() const
{
    // msecsTo already truncates; the clamp keeps a far-away instant in range.
    return std::clamp<qint64>(Clock::now().msecsTo(*m_endDate), -MaxDurationMinutes * 60'000,
                              MaxDurationMinutes * 60'000);
}

void PomodoroService::start()
{
    if (m_isActive)
        return;
    const qint64 full = currentPhaseDurationMs();
    const qint64 length = (m_remainingMs >= 1 && m_remainingMs < full) ? m_remainingMs : full;
    m_endDate = Clock::now().addMSecs(length);
    set(m_isActive, true, &PomodoroService::isActiveChanged);
    startTick();
    if (currentPhase() == Phase::Focus)
        PowerService::shared().acquire(QStringLiteral("Tidewell focus session"));
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
        set(m_remainingMs, qint64(0), &PomodoroService::remainingMsChanged);
        handleFinish();
        return;
    }
    set(m_remainingMs, ms, &PomodoroService::remainingMsChanged);
}

void PomodoroService::stopCountdown()
{
    set(m_isActive, false, &PomodoroService::isActiveChanged);
    m_endDate.reset();
    stopTick();
    PowerService::shared().release();
    cancelEndNotification();
}

void PomodoroService::cancelEndNotification()
{
    ++m_run;
    if (m_scheduledNotifId) {
        NotificationService::shared().cancel(*m_scheduledNotifId);
        m_scheduledNotifId.reset();
    }
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
        set(m_remainingMs, std::max<qint64>(msUntilEnd(), 0), &PomodoroService::remainingMsChanged);
    stopCountdown();
    delete m_autoStartTimer;
    m_autoStartTimer = nullptr;
    persistDebounced();
}

void PomodoroService::reset()
{
    pause();
    set(m_remainingMs, currentPhaseDurationMs(), &PomodoroService::remainingMsChanged);
    persistDebounced();
}

void PomodoroService::skip()
{
    if (m_isActive)
        pause();
    advancePhase();
    set(m_remainingMs, currentPhaseDurationMs(), &PomodoroService::remainingMsChanged);
    persistDebounced();
}

void PomodoroService::handleFinish()
{
    stopCountdown();
    AudioService::shared().play(AudioService::Sound::FinishPomodoro);
    advancePhase();
    set(m_remainingMs, currentPhaseDurationMs(), &PomodoroService::remainingMsChanged);
    persistDebounced();
    if (m_autoStart)
        scheduleAutoStart();
}

void PomodoroService::advancePhase()
{
    switch (currentPhase()) {
    case Phase::Focus:
        set(m_pomodoroCount, m_pomodoroCount + 1, &PomodoroService::pomodoroCountChanged);
        set(m_pomodoroTotalCount, m_pomodoroTotalCount + 1,
            &PomodoroService::pomodoroTotalCountChanged);
        set(m_phaseLabel,
            m_pomodoroCount < m_pomodorosForLongBreak ? shortBreakLabel : longBreakLabel,
            &PomodoroService::phaseLabelChanged);
        break;
    case Phase::ShortBreak:
        set(m_shortBreakCount, m_shortBreakCount + 1, &PomodoroService::shortBreakCountChanged);
        set(m_phaseLabel, focusLabel, &PomodoroService::phaseLabelChanged);
        break;
    case Phase::LongBreak:
        set(m_longBreakCount, m_longBreakCount + 1, &PomodoroService::longBreakCountChanged);
        set(m_pomodoroCount, qint64(0), &PomodoroService::pomodoroCountChanged);
        set(m_phaseLabel, focusLabel, &PomodoroService::phaseLabelChanged);
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
    const QString title = m_phaseLabel + QStringLiteral(" Complete!");
    const QString body = m_phaseLabel == focusLabel ? QStringLiteral("Time for a break.")
                                                    : QStringLiteral("Back to work!");
    const quint64 run = m_run;
    auto done = [self = QPointer<PomodoroService>(this), run](std::optional<QString> id) {
        if (!id)
            return;
        // The phase stopped before the identifier came back: withdraw it now.
        if (!self || run != self->m_run || !self->m_isActive) {
            NotificationService::shared().cancel(*id);
            return;
        }
        self->m_scheduledNotifId = std::move(id);
    };
    if (m_scheduler) {
        m_scheduler(title, body, *m_endDate, std::move(done));
        return;
    }
    QCoro::connect(NotificationService::shared().schedule(title, body, *m_endDate), this,
                   std::move(done));
}

void PomodoroService::updateSettings(std::optional<qint64> pomodoro,
                                     std::optional<qint64> shortBreak,
                                     std::optional<qint64> longBreak,
                                     std::optional<qint64> pomodorosForLong,
                                     std::optional<bool> autoStart)
{
    if (m_isActive) {
        if (m_endDate)
            set(m_remainingMs, std::max<qint64>(msUntilEnd(), 0),
                &PomodoroService::remainingMsChanged);
        stopCountdown();
        delete m_autoStartTimer;
        m_autoStartTimer = nullptr;
    }
    set(m_pomodoroDuration, clampMinutes(pomodoro.value_or(m_pomodoroDuration), 1),
        &PomodoroService::pomodoroDurationChanged);
    set(m_shortBreakDuration, clampMinutes(shortBreak.value_or(m_shortBreakDuration), 1),
        &PomodoroService::shortBreakDurationChanged);
    set(m_longBreakDuration, clampMinutes(longBreak.value_or(m_longBreakDuration), 1),
        &PomodoroService::longBreakDurationChanged);
    set(m_pomodorosForLongBreak,
        clampMinutes(pomodorosForLong.value_or(m_pomodorosForLongBreak), 2),
        &PomodoroService::pomodorosForLongBreakChanged);
    if (autoStart)
        set(m_autoStart, *autoStart, &PomodoroService::autoStartChanged);
    set(m_pomodoroCount, qint64(0), &PomodoroService::pomodoroCountChanged);
    set(m_pomodoroTotalCount, qint64(0), &PomodoroService::pomodoroTotalCountChanged);
    set(m_shortBreakCount, qint64(0), &PomodoroService::shortBreakCountChanged);
    set(m_longBreakCount, qint64(0), &PomodoroService::longBreakCountChanged);
    set(m_phaseLabel, focusLabel, &PomodoroService::phaseLabelChanged);
    set(m_remainingMs, currentPhaseDurationMs(), &PomodoroService::remainingMsChanged);
    persistImmediate();
}

void PomodoroService::didBecomeActive()
{
    if (!m_isActive || !m_endDate)
        return;
    const qint64 ms = msUntilEnd();
    set(m_remainingMs, std::max<qint64>(ms, 0), &PomodoroService::remainingMsChanged);
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
    const Phase phase = currentPhase();
    cfg->setIsBreak(phase != Phase::Focus);
    cfg->setIsShortBreak(phase == Phase::ShortBreak);
    cfg->setIsLongBreak(phase == Phase::LongBreak);
    DataStore::shared().mainContext().save();
    if (m_push)
        m_push();
    else
        QCoro::connect(SyncEngine::shared().pushPomodoro(), this, [] {});
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
