#include "KeychainStore.h"

#include "BundleInfo.h"
#include "SecretServiceKeychain.h"

#include <QCoreApplication>
#include <QCoro/QCoroFuture>
#include <QDeadlineTimer>
#include <QMutex>
#include <QPromise>
#include <QStringDecoder>
#include <QThread>

namespace {
struct Cache
{
    QMutex lock;
    std::optional<QString> token;
    bool loaded = false;
    quint64 changes = 0; // saves, clears and backend swaps so far
    std::shared_ptr<KeychainBackend> backend;
    QThread* thread = nullptr; // where keychain calls run
    QObject* calls = nullptr;  // lives on `thread`
};

Cache& cache()
{
    static Cache* c = new Cache; // never destroyed: may be used during shut-down
    return *c;
}

// One for the whole process: the secret-store library keeps per-process state
// tied to the thread that first used it, so its worker thread must never change.
std::shared_ptr<KeychainBackend> systemKeychain()
{
    static const auto keychain = std::make_shared<SecretServiceKeychain>();
    return keychain;
}

std::shared_ptr<KeychainBackend> backend()
{
    Cache& c = cache();
    QMutexLocker locker(&c.lock);
    if (!c.backend)
        c.backend = systemKeychain();
    return c.backend;
}

QObject* callsObject()
{
    Cache& c = cache();
    QMutexLocker locker(&c.lock);
    if (!c.thread) {
        c.thread = new QThread;
        c.thread->setObjectName(QStringLiteral("keychain-calls"));
        c.calls = new QObject;
        c.calls->moveToThread(c.thread);
        c.thread->start();
        // The thread must not outlive the application object. A call stuck in a
        // hung secret store is left behind rather than holding up the exit.
        if (QCoreApplication* app = QCoreApplication::instance()) {
            QObject::connect(app, &QObject::destroyed, [] {
                Cache& c = cache();
                QMutexLocker locker(&c.lock);
                c.thread->quit();
                // Deleted here once its thread has ended: no event loop is left to
                // run a deleteLater.
                if (c.thread->wait(QDeadlineTimer(std::chrono::milliseconds(500)))) {
                    delete c.calls;
                    delete c.thread;
                }
                c.thread = nullptr;
                c.calls = nullptr;
            });
        }
    }
    return c.calls;
}

// Runs `call` with the current keychain on the keychain thread; the future
// finishes there and is awaited on the caller's own thread.
QFuture<KeychainReply> onKeychainThread(std::function<KeychainReply(KeychainBackend&)> call)
{
    auto promise = std::make_shared<QPromise<KeychainReply>>();
    QFuture<KeychainReply> future = promise->future();
    promise->start();
    const std::shared_ptr<KeychainBackend> keychain = backend();
    QMetaObject::invokeMethod(
        callsObject(),
        [promise, keychain, call = std::move(call)] {
            promise->addResult(call(*keychain));
            promise->finish();
        },
        Qt::QueuedConnection);
    return future;
}
} // namespace

QString KeychainStore::service()
{
    static const QString name = [] {
        const QString id = BundleInfo::current().identifier;
        return id.isEmpty() ? QStringLiteral("com.brenlow.tidewell") : id;
    }();
    return name;
}

std::optional<QString> KeychainStore::cachedToken()
{
    Cache& c = cache();
    QMutexLocker locker(&c.lock);
    return c.loaded ? c.token : std::nullopt;
}

QCoro::Task<KeychainStore::Lookup> KeychainStore::fetchToken()
{
    Cache& c = cache();
    quint64 changesBefore = 0;
    {
        QMutexLocker locker(&c.lock);
        if (c.loaded)
            co_return Lookup{true, c.token};
        changesBefore = c.changes;
    }
    // No temporaries inside a co_await: GCC 12 destroys some of them twice.
    QFuture<KeychainReply> pending =
        onKeychainThread([service = service()](KeychainBackend& keychain) {
            return keychain.read(service, account());
        });
    const KeychainReply reply = co_await pending;

    std::optional<QString> token;
    if (reply.outcome == KeychainReply::Outcome::Done) {
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        QString text = decoder(reply.data);
        if (!decoder.hasError())
            token = std::move(text);
    }
    QMutexLocker locker(&c.lock);
    // A token saved or cleared while this read was under way is newer than what it found.
    if (c.changes != changesBefore)
        co_return c.loaded ? Lookup{true, c.token} : Lookup{reply.answered(), token};
    if (!reply.answered())
        co_return Lookup{false, std::nullopt};
    c.token = token;
    c.loaded = true;
    co_return Lookup{true, token};
}

QCoro::Task<KeychainReply> KeychainStore::saveToken(const QString& token)
{
    {
        Cache& c = cache();
        QMutexLocker locker(&c.lock);
        c.token = token;
        c.loaded = true;
        ++c.changes;
    }
    // The secret store replaces an existing item, so no delete is needed first.
    QFuture<KeychainReply> pending =
        onKeychainThread([service = service(), data = token.toUtf8()](KeychainBackend& keychain) {
            return keychain.write(service, account(), data);
        });
    const KeychainReply reply = co_await pending;
    co_return reply;
}

QCoro::Task<KeychainReply> KeychainStore::clearToken()
{
    {
        Cache& c = cache();
        QMutexLocker locker(&c.lock);
        c.token.reset();
        c.loaded = true;
        ++c.changes;
    }
    QFuture<KeychainReply> pending =
        onKeychainThread([service = service()](KeychainBackend& keychain) {
            return keychain.remove(service, account());
        });
    const KeychainReply reply = co_await pending;
    co_return reply;
}

void KeychainStore::setBackend(std::shared_ptr<KeychainBackend> replacement)
{
    Cache& c = cache();
    std::shared_ptr<KeychainBackend> old; // released after the lock: it may take a moment to stop
    QMutexLocker locker(&c.lock);
    old = std::move(c.backend);
    c.backend = std::move(replacement);
    c.token.reset();
    c.loaded = false;
    ++c.changes;
}
