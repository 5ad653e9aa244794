#pragma once

#include <QString>

#include <functional>
#include <memory>
#include <optional>

// Keeps the display from idle sleep. One implementation per platform; create()
// picks this platform's, or one that does nothing where there is none.
class SleepInhibitor
{
public:
    using Answer = std::function<void(std::optional<quint32> cookie)>;

    virtual ~SleepInhibitor() = default;
    // Asks for a hold and returns at once; `answer` gets the hold's identifier,
    // or nothing when the system refused or did not answer in time. It runs on
    // the calling thread's event loop, never from within this call.
    virtual void inhibit(const QString& reason, Answer answer) = 0;
    virtual void uninhibit(quint32 cookie) = 0;

    static std::unique_ptr<SleepInhibitor> create();
};
