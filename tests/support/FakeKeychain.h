#pragma once

#include "KeychainBackend.h"

#include <functional>

// An in-memory keychain that counts its calls and can refuse writes.
class FakeKeychain final : public KeychainBackend
{
public:
    std::optional<QByteArray> read(const QString&, const QString&) override
    {
        ++reads;
        const std::optional<QByteArray> found = stored;
        if (duringRead)
            duringRead();
        return found;
    }
    void write(const QString&, const QString&, const QByteArray& data) override
    {
        ++writes;
        if (!refuseWrites)
            stored = data;
    }
    void remove(const QString&, const QString&) override
    {
        ++removes;
        stored.reset();
    }

    std::optional<QByteArray> stored;
    bool refuseWrites = false;
    // Runs inside read(), after the item was looked up: lets a test hold a read.
    std::function<void()> duringRead;
    int reads = 0;
    int writes = 0;
    int removes = 0;
};
