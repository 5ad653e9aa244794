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
    // Keeps the token in `backend` (KeychainBackend::system(…) in the app).
    explicit KeychainStore(std::shared_ptr<KeychainBackend> backend);
    ~KeychainStore();
    KeychainStore(const KeychainStore&) = delete;
    KeychainStore& operator=(const KeychainStore&) = delete;

    // The bundle identifier, or "com.brenlow.tidewell" without one.
    static QString service();
    static QString account() { return QStringLiteral("api-token-v2"); }

    struct Lookup
    {
        bool answered = false; // false: the keychain did not answer; ask again later
        std::optional<QString> token;
        bool keyringMissing = false; // no secret store runs; see whenKeyringStarts()
    };

    // The cached token, or the keychain's when nothing is cached yet. A found or
    // missing item is cached for the store's life; no answer is not.
    QCoro::Task<Lookup> fetchToken();
    // After a lookup found no secret store running: runs `started` on `receiver`'s
    // thread once one starts (never when the backend cannot tell).
    void whenKeyringStarts(QObject* receiver, std::function<void()> started);
    // What requests use: the cached token, never a keychain call.
    std::optional<QString> cachedToken() const;

    // Both change the cache at once, so requests see the change before the
    // keychain has; the reply says whether the keychain took it.
    QCoro::Task<KeychainReply> saveToken(const QString& token);
    QCoro::Task<KeychainReply> clearToken();

private:
    struct State;
    std::shared_ptr<State> m_state;
};
