#pragma once

#include "HttpAnswer.h"
#include "HttpCall.h"

#include <QDeadlineTimer>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class RequestHandler;

// The threads that answer requests, each with a handler (and database connection)
// of its own. Two lanes: password checks, which take tens of milliseconds and
// 19 MiB each, have threads of their own, so a flood of sign-ins never holds up
// an app's request; everything else shares the other lane. A request that waited
// longer than its deadline is answered 503 without being run.
class RequestPool
{
public:
    using Factory = std::function<std::unique_ptr<RequestHandler>()>;
    using Reply = std::function<void(HttpAnswer)>;

    // `factory` runs once in each thread; a null handler answers every request 503.
    RequestPool(Factory factory, int threads, int slowThreads, int deadlineMs);
    ~RequestPool(); // lets the threads finish what they run, drops what waits

    void submit(HttpCall call, Reply reply);
    // Whether a request goes to the slow lane.
    static bool isSlow(const HttpCall& call);

private:
    struct Job
    {
        HttpCall call;
        Reply reply;
        QDeadlineTimer deadline;
    };
    struct Lane
    {
        std::mutex mutex;
        std::condition_variable wake;
        std::deque<Job> jobs;
        std::vector<std::thread> threads;
    };
    void work(Lane& lane);

    const Factory m_factory;
    const int m_deadlineMs;
    Lane m_fast;
    Lane m_slow;
    std::atomic<bool> m_stopping{false};
};
