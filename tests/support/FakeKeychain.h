#pragma once

#include "KeychainBackend.h"

// An in-memory keychain that counts its calls and can refuse writes.
class FakeKeychain final : public KeychainBackend
{
public:
    std::optional<QByteArray> read(const QString&, const QString&) override
    {
        ++reads;
        return stored;
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
    int reads = 0;
    int writes = 0;
    int removes = 0;
};
