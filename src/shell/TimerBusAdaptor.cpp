#include "TimerBusAdaptor.h"

#include "Countdown.h"
#include "DesktopBus.h"
#include "PomodoroService.h"

#include <QMetaProperty>

TimerBusAdaptor::TimerBusAdaptor(QObject* parent, PomodoroService& timer)
    : QDBusAbstractAdaptor(parent)
    , m_timer(timer)
{
    connect(&timer, &PomodoroService::isActiveChanged, this, [this] {
        changed(
            {QStringLiteral("IsActive"), QStringLiteral("EndsAt"), QStringLiteral("RemainingMs")});
    });
    connect(&timer, &PomodoroService::phaseChanged, this, [this] {
        changed(
            {QStringLiteral("Phase"), QStringLiteral("DurationMs"), QStringLiteral("RemainingMs")});
    });
    connect(&timer, &PomodoroService::remainingMsChanged, this, [this] {
        // Once a second, as the countdown shows it.
        if (Countdown::seconds(remainingMs()) != m_announcedSeconds)
            changed({QStringLiteral("RemainingMs")});
    });
    connect(&timer, &PomodoroService::pomodoroTotalCountChanged, this,
            [this] { changed({QStringLiteral("FocusCount")}); });
    connect(&timer, &PomodoroService::shortBreakCountChanged, this,
            [this] { changed({QStringLiteral("ShortBreakCount")}); });
    connect(&timer, &PomodoroService::longBreakCountChanged, this,
            [this] { changed({QStringLiteral("LongBreakCount")}); });
    for (auto signal :
         {&PomodoroService::pomodoroDurationChanged, &PomodoroService::shortBreakDurationChanged,
          &PomodoroService::longBreakDurationChanged})
        connect(&timer, signal, this, [this] { changed({QStringLiteral("DurationMs")}); });
}

void TimerBusAdaptor::changed(const QStringList& names)
{
    if (m_pending.isEmpty())
        QMetaObject::invokeMethod(this, &TimerBusAdaptor::announce, Qt::QueuedConnection);
    for (const QString& name : names) {
        if (!m_pending.contains(name))
            m_pending.append(name);
    }
}

void TimerBusAdaptor::announce()
{
    QVariantMap properties;
    for (const QString& name : std::as_const(m_pending))
        properties.insert(name, value(name));
    m_pending.clear();
    if (properties.contains(QStringLiteral("RemainingMs")))
        m_announcedSeconds = Countdown::seconds(remainingMs());
    DesktopBus::announce(DesktopBus::TimerInterface, properties);
}

QVariant TimerBusAdaptor::value(const QString& name) const
{
    const QByteArray property = name.toLatin1();
    return metaObject()->property(metaObject()->indexOfProperty(property.constData())).read(this);
}

QString TimerBusAdaptor::phase() const
{
    return Countdown::name(m_timer.currentPhase());
}

qlonglong TimerBusAdaptor::remainingMs() const
{
    return m_timer.remainingMs();
}

bool TimerBusAdaptor::isActive() const
{
    return m_timer.isActive();
}

qlonglong TimerBusAdaptor::focusCount() const
{
    return m_timer.pomodoroTotalCount();
}

qlonglong TimerBusAdaptor::shortBreakCount() const
{
    return m_timer.shortBreakCount();
}

qlonglong TimerBusAdaptor::longBreakCount() const
{
    return m_timer.longBreakCount();
}

QString TimerBusAdaptor::endsAt() const
{
    const std::optional<QDateTime> end = m_timer.endDate();
    return end && m_timer.isActive()
               ? end->toOffsetFromUtc(end->offsetFromUtc()).toString(Qt::ISODateWithMs)
               : QString();
}

qlonglong TimerBusAdaptor::durationMs() const
{
    return m_timer.currentPhaseDurationMs();
}

void TimerBusAdaptor::Start()
{
    m_timer.start();
}

void TimerBusAdaptor::Pause()
{
    m_timer.pause();
}

void TimerBusAdaptor::Toggle()
{
    m_timer.toggle();
}

void TimerBusAdaptor::Skip()
{
    m_timer.skip();
}

void TimerBusAdaptor::Reset()
{
    m_timer.reset();
}
