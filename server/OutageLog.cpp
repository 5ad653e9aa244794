#include "OutageLog.h"

#include <cstdio>

void OutageLog::failed(const QString& reason)
{
    const std::lock_guard<std::mutex> hold(m_mutex);
    if (m_down)
        return;
    m_down = true;
    m_since.start();
    std::fprintf(stderr,
                 "tidewell-server: the database failed (%s); requests are answered 503 until it "
                 "answers again\n",
                 qPrintable(reason.simplified().left(300)));
}

void OutageLog::answered()
{
    if (!m_down.load(std::memory_order_relaxed))
        return;
    const std::lock_guard<std::mutex> hold(m_mutex);
    if (!m_down)
        return;
    m_down = false;
    std::fprintf(stderr, "tidewell-server: the database answers again (after %lld s)\n",
                 static_cast<long long>(m_since.elapsed() / 1000));
}

bool OutageLog::isDown() const
{
    return m_down;
}
