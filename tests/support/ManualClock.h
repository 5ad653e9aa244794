#pragma once

#include "Clock.h"

#include <QDateTime>

// A wall clock a test sets and moves by hand; services read it through clock(), or
// a Clock made from source(), so nothing waits for real time to pass.
class ManualClock
{
public:
    explicit ManualClock(QDateTime start = {})
        : now(std::move(start))
    {}
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    const Clock& clock() const { return m_clock; }
    Clock::Source source() const
    {
        return [this] { return now; };
    }

    QDateTime now; // what the clock says

private:
    const Clock m_clock{[this] { return now; }};
};
