#pragma once

#include "KeychainBackend.h"

#include <QMutex>
#include <QObject>

#include <chrono>
#include <functional>
#include <memory>

class QThread;
namespace QKeychain {
class Job;
}

// The system keychain through qtkeychain (the Secret Service on Linux). Jobs
// run on a worker thread with its own event loop, so that a caller can wait for
// one with a time limit: a secret store that never answers counts as a failure
// after `limit` instead of freezing the caller.
class SecretServiceKeychain final : public KeychainBackend
{
public:
    explicit SecretServiceKeychain(std::chrono::milliseconds limit = std::chrono::seconds(3));
    ~SecretServiceKeychain() override;

    KeychainReply read(const QString& service, const QString& account) override;
    KeychainReply write(const QString& service, const QString& account,
                        const QByteArray& data) override;
    KeychainReply remove(const QString& service, const QString& account) override;
    void whenKeyringStarts(QObject* owner, std::function<void()> started) override;

    struct Outcome;

private:
    // Locked: the item is there, but only in a locked collection.
    enum class Presence { Absent, MayHold, Locked, NoKeyring, NoAnswer };
    // Asks the Secret Service over D-Bus whether it runs and has the item at all,
    // so that a signed-out start never loads the secret-store library and its
    // dependencies (about 4 MB resident).
    Presence probe(const QString& service, const QString& account);
    // Runs the job `make` creates on the worker, waiting at most the limit.
    KeychainReply run(const std::function<QKeychain::Job*()>& make);
    static KeychainReply noAnswer();
    // The object that lives on the worker thread, started on first use.
    QObject* worker();
    void stop();

    std::chrono::milliseconds m_limit;
    QMutex m_lock;
    QThread* m_thread = nullptr;
    QObject* m_jobs = nullptr;
    QMetaObject::Connection m_appGone;
};
