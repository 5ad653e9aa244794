#include "ClockWatch.h"

#include "Clock.h"
#include "ResumeSignal.h"

ClockWatch::ClockWatch(QObject* parent, std::unique_ptr<ResumeSignal> resume)
    : QObject(parent)
    , m_resume(resume ? std::move(resume) : ResumeSignal::create())
{
    connect(m_resume.get(), &ResumeSignal::resumed, this, [this] {
        restart();
        emit jumped();
    });
    m_timer.setInterval(CheckIntervalMs);
    m_timer.setTimerType(Qt::VeryCoarseTimer); // a second late costs nothing here
    connect(&m_timer, &QTimer::timeout, this, &ClockWatch::check);
    m_timer.start();
    restart();
}

ClockWatch::~ClockWatch() = default;

void ClockWatch::restart()
{
    m_monotonic.start();
    m_wall = Clock::now();
}

void ClockWatch::check()
{
    const qint64 expected = m_monotonic.elapsed();
    const qint64 moved = m_wall.msecsTo(Clock::now());
    restart();
    if (std::abs(moved - expected) > ToleranceMs)
        emit jumped();
}
