#pragma once

#include <QTimer>

#include <chrono>
#include <coroutine>

// `co_await Pause(wait)` resumes the coroutine from the event loop once `wait` has
// passed. The timer is Qt's own single-shot one, so nothing the coroutine owns has
// to outlive its own resumption.
class Pause final
{
public:
    explicit Pause(std::chrono::milliseconds wait)
        : m_wait(wait)
    {}

    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> waiting) const
    {
        QTimer::singleShot(m_wait, [waiting] { waiting.resume(); });
    }
    void await_resume() const noexcept {}

private:
    std::chrono::milliseconds m_wait;
};
