#pragma once

#include <QDateTime>

#include <functional>

// The wall clock every service reads "now" from. Tests replace the source to
// move time without sleeping.
class Clock
{
public:
    using Source = std::function<QDateTime()>;

    static QDateTime now();
    // An empty source restores the system clock.
    static void setSource(Source source);
};
