#pragma once

#include <QDateTime>

#include <functional>

// The wall clock a service reads "now" from. The composition root hands every
// service the system clock; tests hand them one they move by hand, so nothing
// waits for real time to pass.
class Clock
{
public:
    using Source = std::function<QDateTime()>;

    // The system clock.
    Clock() = default;
    // Reads `source` instead; an empty one is the system clock.
    explicit Clock(Source source);

    QDateTime now() const;

private:
    Source m_source;
};
