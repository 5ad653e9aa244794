#include "RequestPool.h"

#include "RequestHandler.h"

RequestPool::RequestPool(Factory factory, int threads, int slowThreads, int deadlineMs)
    : m_factory(std::move(factory))
    , m_deadlineMs(deadlineMs)
{
    for (int i = 0; i < std::max(threads, 1); ++i)
        m_fast.threads.emplace_back([this] { work(m_fast); });
    for (int i = 0; i < std::max(slowThreads, 1); ++i)
        m_slow.threads.emplace_back([this] { work(m_slow); });
}

RequestPool::~RequestPool()
{
    for (Lane* lane : {&m_fast, &m_slow}) {
        {
            const std::lock_guard<std::mutex> hold(lane->mutex);
            m_stopping = true;
            lane->jobs.clear();
        }
        lane->wake.notify_all();
    }
    for (Lane* lane : {&m_fast, &m_slow}) {
        for (std::thread& thread : lane->threads)
            thread.join();
    }
}

bool RequestPool::isSlow(const HttpCall& call)
{
    return call.method == "POST" && call.path == u"/en/app/signin";
}

void RequestPool::submit(HttpCall call, Reply reply)
{
    Lane& lane = isSlow(call) ? m_slow : m_fast;
    {
        const std::lock_guard<std::mutex> hold(lane.mutex);
        if (m_stopping)
            return;
        lane.jobs.push_back({std::move(call), std::move(reply), QDeadlineTimer(m_deadlineMs)});
    }
    lane.wake.notify_one();
}

void RequestPool::work(Lane& lane)
{
    const std::unique_ptr<RequestHandler> handler = m_factory();
    for (;;) {
        Job job;
        {
            std::unique_lock<std::mutex> hold(lane.mutex);
            lane.wake.wait(hold, [&] { return m_stopping || !lane.jobs.empty(); });
            if (m_stopping)
                return;
            job = std::move(lane.jobs.front());
            lane.jobs.pop_front();
        }
        if (!handler || job.deadline.hasExpired()) {
            job.reply(HttpAnswer::unavailable(
                handler ? QStringLiteral("the server is busy; try again shortly")
                        : QStringLiteral("the database is not available; try again shortly")));
            continue;
        }
        job.reply(handler->handle(std::move(job.call), job.deadline));
    }
}
