#include "Clock.h"

Clock::Clock(Source source)
    : m_source(std::move(source))
{}

QDateTime Clock::now() const
{
    return m_source ? m_source() : QDateTime::currentDateTime();
}
