#pragma once

#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>

#include <coroutine>

// `co_await DBusCallAwaiter(bus.asyncCall(…))` resumes the coroutine from the event
// loop with the finished call, ready to be read as a QDBusPendingReply.
class DBusCallAwaiter final
{
public:
    explicit DBusCallAwaiter(QDBusPendingCall call)
        : m_call(std::move(call))
    {}

    bool await_ready() const { return m_call.isFinished(); }
    void await_suspend(std::coroutine_handle<> waiting) const
    {
        auto* watcher = new QDBusPendingCallWatcher(m_call);
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                         [waiting](QDBusPendingCallWatcher* finished) {
                             finished->deleteLater();
                             waiting.resume();
                         });
    }
    QDBusPendingCall await_resume() const { return m_call; }

private:
    QDBusPendingCall m_call;
};
