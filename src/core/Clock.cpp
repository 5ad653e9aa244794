#include "Clock.h"

namespace {
Clock::Source& source()
{
    static Clock::Source s;
    return s;
}
} // namespace

QDateTime Clock::now()
{
    const Source& s = source();
    return s ? s() : QDateTime::currentDateTime();
}

void Clock::setSource(Source s)
{
    source() = std::move(s);
}
