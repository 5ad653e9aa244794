#pragma once

#include "KeychainBackend.h"

#include <functional>

// An in-memory keychain that counts its calls and can refuse or ignore them.
// Called on the keychain thread; a test reads its fields once the calls are done.
class FakeKeychain final : public KeychainBackend
{
public:
    KeychainReply read(const QString&, const QString&) override
    {
        ++reads;
        if (silentReads > 0) {
            --silentReads;
            return {
                KeychainReply::Outcome::NoAnswer, {}, QStringLiteral("the keyring did not answer")};
        }
        if (notRunning)
            return {
                KeychainReply::Outcome::NotRunning, {}, QStringLiteral("no keyring is running")};
        const std::optional<QByteArray> found = stored;
        if (duringRead)
            duringRead();
        if (!found)
            return {KeychainReply::Outcome::Missing, {}, {}};
        return {KeychainReply::Outcome::Done, *found, {}};
    }
    KeychainReply write(const QString&, const QString&, const QByteArray& data) override
    {
        ++writes;
        if (refuseWrites)
            return {KeychainReply::Outcome::Failed, {}, QStringLiteral("no keyring is running")};
        stored = data;
        return {KeychainReply::Outcome::Done, {}, {}};
    }
    KeychainReply remove(const QString&, const QString&) override
    {
        ++removes;
        if (refuseRemoves)
            return {
                KeychainReply::Outcome::NoAnswer, {}, QStringLiteral("the keyring did not answer")};
        stored.reset();
        return {KeychainReply::Outcome::Done, {}, {}};
    }

    void whenKeyringStarts(QObject*, std::function<void()> started) override
    {
        onStart = std::move(started);
    }

    std::optional<QByteArray> stored;
    bool notRunning = false;       // reads find no secret store running
    std::function<void()> onStart; // what to run when one starts
    bool refuseWrites = false;
    bool refuseRemoves = false;
    int silentReads = 0; // this many reads get no answer before one does
    // Runs inside read(), after the item was looked up: lets a test hold a read.
    std::function<void()> duringRead;
    int reads = 0;
    int writes = 0;
    int removes = 0;
};
