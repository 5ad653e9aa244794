#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// Where the token is kept: the system's secret store, or a fake in tests.
// Calls block the calling thread, each for a bounded time.
class KeychainBackend
{
public:
    virtual ~KeychainBackend() = default;

    // The item's data; absent when it is missing or cannot be read for any reason.
    virtual std::optional<QByteArray> read(const QString& service, const QString& account) = 0;
    // False only when the store surely holds no such item, found out more cheaply
    // than by reading it; true when there may be one, or when it cannot tell.
    virtual bool mayHold(const QString& /*service*/, const QString& /*account*/) { return true; }
    // Creates or replaces the item. Failures are not reported.
    virtual void write(const QString& service, const QString& account, const QByteArray& data) = 0;
    virtual void remove(const QString& service, const QString& account) = 0;
};
