#pragma once

#include <QString>

#include <memory>
#include <optional>

// Keeps the display from idle sleep. One implementation per platform; create()
// picks this platform's, or one that does nothing where there is none.
class SleepInhibitor
{
public:
    virtual ~SleepInhibitor() = default;
    // The hold's identifier, or nothing when the system refused or did not answer.
    virtual std::optional<quint32> inhibit(const QString& reason) = 0;
    virtual void uninhibit(quint32 cookie) = 0;

    static std::unique_ptr<SleepInhibitor> create();
};
