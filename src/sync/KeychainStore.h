#pragma once

#include "KeychainBackend.h"

#include <QCoro/QCoroTask>
#include <QString>

#include <memory>
#include <optional>

// The signed-in user's API token in the system keychain, cached in memory.
// Every keychain call runs on one background thread, in the order asked, and
// its outcome comes back to the caller's thread: a secret store that is slow to
// start or waits for the user to unlock it never freezes a window. The cache is
// what requests read, so they never wait for the keychain either.
class KeychainStore
{
public:
    KeychainStore() = delete;

    // The bundle identifier, or "com.brenlow.tidewell" without one.
    static QString service();
    static QString account() { return QStringLiteral("api-token-v2"); }

    struct Lookup
    {
        bool answered = false; // false: the keychain did not answer; ask again later
        std::optional<QString> token;
    };

    // The cached token, or the keychain's when nothing is cached yet. A found or
    // missing item is cached for the rest of the process; no answer is not.
    static QCoro::Task<Lookup> fetchToken();
    // What requests use: the cached token, never a keychain call.
    static std::optional<QString> cachedToken();

    // Both change the cache at once, so requests see the change before the
    // keychain has; the reply says whether the keychain took it.
    static QCoro::Task<KeychainReply> saveToken(const QString& token);
    static QCoro::Task<KeychainReply> clearToken();

    // Tests: replaces the keychain (null restores the system one) and forgets
    // the cache, as a new process would.
    static void setBackend(std::shared_ptr<KeychainBackend> backend);
};
