#include "KeychainStore.h"

#include "BundleInfo.h"
#include "SecretServiceKeychain.h"

#include <QMutex>
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
} // namespace

QString KeychainStore::service()
{
    static const QString name = [] {
        const QString id = BundleInfo::current().identifier;
        return id.isEmpty() ? QStringLiteral("com.brenlow.tidewell") : id;
    }();
    return name;
}

std::optional<QString> KeychainStore::loadToken()
{
    Cache& c = cache();
    quint64 changesBefore = 0;
    {
        QMutexLocker locker(&c.lock);
        if (c.loaded)
            return c.token;
        changesBefore = c.changes;
    }
    std::optional<QString> token;
    const std::shared_ptr<KeychainBackend> keychain = backend();
    std::optional<QByteArray> data;
    if (keychain->mayHold(service(), account()))
        data = keychain->read(service(), account());
    if (data) {
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        QString text = decoder(*data);
        if (!decoder.hasError())
            token = std::move(text);
    }
    QMutexLocker locker(&c.lock);
    // A token saved or cleared while this read was under way is newer than what it found.
    if (c.changes != changesBefore)
        return c.loaded ? c.token : token;
    c.token = token;
    c.loaded = true;
    return token;
}

void KeychainStore::saveToken(const QString& token)
{
    // qtkeychain replaces an existing item, so no delete is needed first.
    backend()->write(service(), account(), token.toUtf8());
    Cache& c = cache();
    QMutexLocker locker(&c.lock);
    c.token = token;
    c.loaded = true;
    ++c.changes;
}

void KeychainStore::clearToken()
{
    backend()->remove(service(), account());
    Cache& c = cache();
    QMutexLocker locker(&c.lock);
    c.token.reset();
    c.loaded = true;
    ++c.changes;
}

void KeychainStore::preload(QObject* context, std::function<void()> done)
{
    {
        Cache& c = cache();
        QMutexLocker locker(&c.lock);
        if (c.loaded) {
            locker.unlock();
            done();
            return;
        }
    }
    QThread* reader = QThread::create([] { loadToken(); });
    reader->setObjectName(QStringLiteral("keychain-read"));
    QObject::connect(reader, &QThread::finished, context, std::move(done));
    QObject::connect(reader, &QThread::finished, reader, &QObject::deleteLater);
    reader->start();
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
