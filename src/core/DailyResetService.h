#pragma once

#include <QDateTime>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QTimer>

#include <functional>

class Clock;

// Fires shortly after each local midnight and calls the registered handlers in
// registration order; also defines the day key ("yyyy-MM-dd").
class DailyResetService final : public QObject
{
    Q_OBJECT

public:
    explicit DailyResetService(const Clock& clock, QObject* parent = nullptr);

    // Appends a handler; may be called from any thread, also from a handler
    // (which is then first called at the next rollover). Does not arm the timer.
    void registerHandler(std::function<void()> handler);
    // Arms the timer for the next rollover, replacing any earlier one.
    void scheduleNext();
    void stop();
    // When the armed rollover is due (invalid when none is armed).
    QDateTime nextFireTime() const { return m_fireAt; }
    // Runs the rollover if its time has come by the clock. The timer calls it;
    // so may anyone who knows the clock jumped (resume from suspend).
    void fireIfDue();

    // The day key of `moment` in the current time zone, Gregorian, digits always ASCII.
    static QString dateString(const QDateTime& moment);
    // The start of the next local calendar day after `now`, plus 5 seconds.
    static QDateTime nextRollover(const QDateTime& now);

private:
    void arm();

    const Clock& m_clock;

    QTimer m_timer;
    QDateTime m_fireAt;
    QMutex m_lock;
    QList<std::function<void()>> m_handlers;
};
