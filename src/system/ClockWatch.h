#pragma once

#include "ResumeSignal.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <memory>

// Tells when the wall clock moved other than by time passing: the machine woke
// from suspend (said by the system, or seen as wall time that ran on while the
// monotonic clock stood still), or the system time was changed. Timers count
// monotonic time, so whatever is due by the wall clock is then due at once.
class ClockWatch final : public QObject
{
    Q_OBJECT

public:
    static constexpr int CheckIntervalMs = 5000;
    static constexpr qint64 ToleranceMs = 2000;

    // Null `resume` means this platform's.
    explicit ClockWatch(QObject* parent = nullptr, std::unique_ptr<ResumeSignal> resume = {});
    ~ClockWatch() override;

    // Compares how far the wall clock and the monotonic clock moved since the last check.
    void check();

signals:
    void jumped();

private:
    void restart();

    std::unique_ptr<ResumeSignal> m_resume;
    QTimer m_timer;
    QElapsedTimer m_monotonic;
    QDateTime m_wall;
};
