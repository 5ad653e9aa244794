#include "DailyResetService.h"

#include "Clock.h"

#include <algorithm>

namespace {
// A monotonic timer stops counting while the machine is suspended, so the wait is
// cut into short steps and the wall clock decides when the rollover is due.
constexpr qint64 maxStepMs = 60'000;
} // namespace

DailyResetService::DailyResetService(const Clock& clock, QObject* parent)
    : QObject(parent)
    , m_clock(clock)
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &DailyResetService::fireIfDue);
}

void DailyResetService::registerHandler(std::function<void()> handler)
{
    QMutexLocker locker(&m_lock);
    m_handlers.append(std::move(handler));
}

QDateTime DailyResetService::nextRollover(const QDateTime& now)
{
    // Calendar arithmetic: on a daylight-saving day the step is 23 or 25 hours, and
    // where midnight itself is skipped the day starts at the first valid instant.
    const QDate tomorrow = now.toLocalTime().date().addDays(1);
    const QDateTime start = tomorrow.startOfDay();
    return start.isValid() ? start.addSecs(5) : QDateTime();
}

void DailyResetService::scheduleNext()
{
    m_fireAt = nextRollover(m_clock.now());
    if (!m_fireAt.isValid()) {
        m_timer.stop();
        return;
    }
    arm();
}

void DailyResetService::stop()
{
    m_timer.stop();
    m_fireAt = QDateTime();
}

void DailyResetService::arm()
{
    const qint64 wait = std::clamp<qint64>(m_clock.now().msecsTo(m_fireAt), 0, maxStepMs);
    m_timer.start(std::chrono::milliseconds(wait));
}

void DailyResetService::fireIfDue()
{
    if (!m_fireAt.isValid())
        return;
    if (m_clock.now() < m_fireAt) {
        arm();
        return;
    }
    QList<std::function<void()>> handlers;
    {
        QMutexLocker locker(&m_lock);
        handlers = m_handlers;
    }
    for (const auto& handler : handlers)
        handler();
    scheduleNext();
}

QString DailyResetService::dateString(const QDateTime& moment)
{
    // QDate::toString with a format uses the C locale and the Gregorian calendar.
    return moment.toLocalTime().date().toString(u"yyyy-MM-dd");
}
