#pragma once

#include <QDBusAbstractAdaptor>
#include <QString>

class PomodoroService;

// com.brenlow.tidewell.Timer: the focus timer's operations and state. Changes are
// announced with PropertiesChanged; RemainingMs only when its whole seconds
// change, so at most once a second.
class TimerBusAdaptor final : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.brenlow.tidewell.Timer")
    Q_PROPERTY(QString Phase READ phase)
    Q_PROPERTY(qlonglong RemainingMs READ remainingMs)
    Q_PROPERTY(bool IsActive READ isActive)
    Q_PROPERTY(qlonglong FocusCount READ focusCount)
    Q_PROPERTY(qlonglong ShortBreakCount READ shortBreakCount)
    Q_PROPERTY(qlonglong LongBreakCount READ longBreakCount)
    Q_PROPERTY(QString EndsAt READ endsAt)
    Q_PROPERTY(qlonglong DurationMs READ durationMs)

public:
    TimerBusAdaptor(QObject* parent, PomodoroService& timer);

    // "focus", "short-break" or "long-break".
    QString phase() const;
    qlonglong remainingMs() const;
    bool isActive() const;
    qlonglong focusCount() const;
    qlonglong shortBreakCount() const;
    qlonglong longBreakCount() const;
    // The running phase's end as ISO 8601 with the UTC offset; empty when stopped.
    QString endsAt() const;
    // The whole length of the current phase.
    qlonglong durationMs() const;

public slots:
    void Start();
    void Pause();
    void Toggle();
    void Skip();
    void Reset();

private:
    // Collects changed property names; they are announced together once the
    // service is done changing, so a listener never sees a half-made state (the
    // new phase with the old phase's remaining time).
    void changed(const QStringList& names);
    void announce();
    QVariant value(const QString& name) const;

    PomodoroService& m_timer;
    qlonglong m_announcedSeconds = -1;
    QStringList m_pending;
};
