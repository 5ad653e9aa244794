#include "KeychainStore.h"

#include "BundleInfo.h"

#include <QCoreApplication>
#include <QCoro/QCoroFuture>
#include <QDeadlineTimer>
#include <QMutex>
#include <QPointer>
#include <QPromise>
#include <QStringDecoder>
#include <QThread>

namespace {
// One thread for the whole process, whatever the number of stores.
struct CallThread
{
    QMutex lock;
    QThread* thread = nullptr;
    QObject* calls = nullptr; // lives on `thread`
};

CallThread& callThread()
{
    static CallThread* c = new CallThread; // never destroyed: may be used during shut-down
    return *c;
}

QObject* callsObject()
{
    CallThread& c = callThread();
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
                CallThread& c = callThread();
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
QFuture<KeychainReply> onKeychainThread(std::shared_ptr<KeychainBackend> keychain,
                                        std::function<KeychainReply(KeychainBackend&)> call)
{
    auto promise = std::make_shared<QPromise<KeychainReply>>();
    QFuture<KeychainReply> future = promise->future();
    promise->start();
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

struct KeychainStore::State
{
    QMutex lock;
    std::optional<QString> token;
    bool loaded = false;
    quint64 changes = 0; // saves and clears so far
    std::shared_ptr<KeychainBackend> backend;
};

KeychainStore::KeychainStore(std::shared_ptr<KeychainBackend> backend)
    : m_state(std::make_shared<State>())
{
    m_state->backend = std::move(backend);
}

KeychainStore::~KeychainStore() = default;

QString KeychainStore::service()
{
    static const QString name = [] {
        const QString id = BundleInfo::current().identifier;
        return id.isEmpty() ? QStringLiteral("com.brenlow.tidewell") : id;
    }();
    return name;
}

std::optional<QString> KeychainStore::cachedToken() const
{
    State& c = *m_state;
    QMutexLocker locker(&c.lock);
    return c.loaded ? c.token : std::nullopt;
}

QCoro::Task<KeychainStore::Lookup> KeychainStore::fetchToken()
{
    // The frame keeps the state alive should the store go while the keychain answers.
    const std::shared_ptr<State> state = m_state;
    State& c = *state;
    quint64 changesBefore = 0;
    {
        QMutexLocker locker(&c.lock);
        if (c.loaded)
            co_return Lookup{true, c.token, false};
        changesBefore = c.changes;
    }
    // No temporaries inside a co_await: GCC 12 destroys some of them twice.
    QFuture<KeychainReply> pending =
        onKeychainThread(c.backend, [service = service()](KeychainBackend& keychain) {
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
        co_return c.loaded ? Lookup{true, c.token, false} : Lookup{reply.answered(), token, false};
    if (!reply.answered())
        co_return Lookup{false, std::nullopt, false};
    // Not cached: the item may be there once a secret store starts.
    if (reply.outcome == KeychainReply::Outcome::NotRunning)
        co_return Lookup{true, std::nullopt, true};
    c.token = token;
    c.loaded = true;
    co_return Lookup{true, token, false};
}

void KeychainStore::whenKeyringStarts(QObject* receiver, std::function<void()> started)
{
    QObject* calls = callsObject();
    QMetaObject::invokeMethod(
        calls,
        [calls, backend = m_state->backend, receiver = QPointer<QObject>(receiver),
         started = std::move(started)] {
            backend->whenKeyringStarts(calls, [receiver, started] {
                if (receiver)
                    QMetaObject::invokeMethod(receiver, started, Qt::QueuedConnection);
            });
        },
        Qt::QueuedConnection);
}

QCoro::Task<KeychainReply> KeychainStore::saveToken(const QString& token)
{
    const std::shared_ptr<State> state = m_state;
    {
        QMutexLocker locker(&state->lock);
        state->token = token;
        state->loaded = true;
        ++state->changes;
    }
    // The secret store replaces an existing item, so no delete is needed first.
    QFuture<KeychainReply> pending = onKeychainThread(
        state->backend, [service = service(), data = token.toUtf8()](KeychainBackend& keychain) {
            return keychain.write(service, account(), data);
        });
    const KeychainReply reply = co_await pending;
    co_return reply;
}

QCoro::Task<KeychainReply> KeychainStore::clearToken()
{
    const std::shared_ptr<State> state = m_state;
    {
        QMutexLocker locker(&state->lock);
        state->token.reset();
        state->loaded = true;
        ++state->changes;
    }
    QFuture<KeychainReply> pending =
        onKeychainThread(state->backend, [service = service()](KeychainBackend& keychain) {
            return keychain.remove(service, account());
        });
    const KeychainReply reply = co_await pending;
    co_return reply;
}
