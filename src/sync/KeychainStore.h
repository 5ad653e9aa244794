#pragma once

#include "KeychainBackend.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>

// The signed-in user's API token in the system keychain, cached in memory.
// Usable from any thread; the lock guards only the cache, never a keychain call.
// Keychain failures are never reported: a failed read is no token, and a failed
// write still leaves the token in the cache until the process ends.
class QObject;

class KeychainStore
{
public:
    KeychainStore() = delete;

    // The bundle identifier, or "com.brenlow.tidewell" without one.
    static QString service();
    static QString account() { return QStringLiteral("api-token-v2"); }

    static std::optional<QString> loadToken();
    static void saveToken(const QString& token);
    static void clearToken();
    // Looks the token up on a background thread, then calls `done` on `context`'s
    // thread; at once when it is cached already. A secret store that first has to
    // start can take seconds, and no window should wait for it.
    static void preload(QObject* context, std::function<void()> done);

    // Tests: replaces the keychain (null restores the system one) and forgets
    // the cache, as a new process would.
    static void setBackend(std::shared_ptr<KeychainBackend> backend);
};
