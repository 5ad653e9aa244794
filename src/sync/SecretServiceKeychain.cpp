#include "SecretServiceKeychain.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDeadlineTimer>
#include <QThread>
#include <QWaitCondition>
#include <qt6keychain/keychain.h>

struct SecretServiceKeychain::Outcome
{
    QMutex lock;
    QWaitCondition done;
    bool finished = false;
    bool ok = false;
    QByteArray data;
};

SecretServiceKeychain::SecretServiceKeychain(std::chrono::milliseconds limit)
    : m_limit(limit)
{}

SecretServiceKeychain::~SecretServiceKeychain()
{
    stop();
}

QObject* SecretServiceKeychain::worker()
{
    QMutexLocker locker(&m_lock);
    if (!m_thread) {
        m_thread = new QThread;
        m_thread->setObjectName(QStringLiteral("keychain"));
        m_jobs = new QObject;
        m_jobs->moveToThread(m_thread);
        m_thread->start();
        // The thread must not outlive the application object.
        if (QCoreApplication* app = QCoreApplication::instance())
            m_appGone = QObject::connect(app, &QObject::destroyed, [this] { stop(); });
    }
    return m_jobs;
}

void SecretServiceKeychain::stop()
{
    QMutexLocker locker(&m_lock);
    if (!m_thread)
        return;
    QObject::disconnect(m_appGone);
    m_jobs->deleteLater(); // on the worker, when its loop ends
    m_jobs = nullptr;
    m_thread->quit();
    // A job stuck in a hung secret store does not block the loop from quitting.
    m_thread->wait(QDeadlineTimer(std::chrono::seconds(2)));
    if (m_thread->isFinished())
        delete m_thread;
    m_thread = nullptr;
}

std::optional<QByteArray> SecretServiceKeychain::run(const std::function<QKeychain::Job*()>& make)
{
    QObject* jobs = worker();
    auto outcome = std::make_shared<Outcome>();
    auto finish = [outcome](bool ok, const QByteArray& data) {
        QMutexLocker locker(&outcome->lock);
        outcome->finished = true;
        outcome->ok = ok;
        outcome->data = data;
        outcome->done.wakeAll();
    };
    const bool posted = QMetaObject::invokeMethod(
        jobs,
        [make, finish] {
            QKeychain::Job* job = make();
            job->setAutoDelete(true);
            QObject::connect(job, &QKeychain::Job::finished, job, [finish](QKeychain::Job* j) {
                const bool ok = j->error() == QKeychain::NoError;
                auto* read = qobject_cast<QKeychain::ReadPasswordJob*>(j);
                finish(ok, ok && read ? read->binaryData() : QByteArray());
            });
            job->start();
        },
        Qt::QueuedConnection);
    if (!posted)
        return std::nullopt;

    QMutexLocker locker(&outcome->lock);
    QDeadlineTimer deadline(m_limit);
    while (!outcome->finished) {
        if (!outcome->done.wait(&outcome->lock, deadline))
            break;
    }
    if (!outcome->finished) {
        qWarning("KeychainStore request failed: no answer from the secret store within %lld ms",
                 static_cast<long long>(m_limit.count()));
        return std::nullopt;
    }
    if (!outcome->ok)
        return std::nullopt;
    return outcome->data;
}

std::optional<QByteArray> SecretServiceKeychain::read(const QString& service,
                                                      const QString& account)
{
    return run([service, account] {
        auto* job = new QKeychain::ReadPasswordJob(service);
        job->setKey(account);
        return job;
    });
}

namespace {
// qtkeychain keeps its items in KWallet rather than the Secret Service on a KDE
// desktop whose wallet answers; there the probe cannot tell.
bool mayUseWallet()
{
    const QByteArray desktop = qgetenv("XDG_CURRENT_DESKTOP");
    const QByteArray session = qgetenv("DESKTOP_SESSION");
    return desktop == "KDE" || session == "kde" || session == "kde4" ||
           qEnvironmentVariableIsSet("KDE_FULL_SESSION");
}
} // namespace

bool SecretServiceKeychain::mayHold(const QString& service, const QString& account)
{
    if (mayUseWallet())
        return true;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false; // the secret-store library needs the same bus
    using Attributes = QMap<QString, QString>;
    static const QMetaType registered = qDBusRegisterMetaType<Attributes>();
    Q_UNUSED(registered);
    // qtkeychain labels its items with the key as "user" and the service as "server".
    const Attributes attributes{{QStringLiteral("user"), account},
                                {QStringLiteral("server"), service}};
    QDBusMessage search = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.secrets"), QStringLiteral("/org/freedesktop/secrets"),
        QStringLiteral("org.freedesktop.Secret.Service"), QStringLiteral("SearchItems"));
    search << QVariant::fromValue(attributes);
    const QDBusMessage reply = bus.call(search, QDBus::Block, int(m_limit.count()));
    if (reply.type() == QDBusMessage::ErrorMessage)
        // No Secret Service on the bus: a read could not find anything either. Any
        // other failure, a slow first start of the store included, is left to the read.
        return reply.errorName() != QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown");
    const QList<QVariant> found = reply.arguments(); // unlocked and locked item paths
    return found.size() != 2 || !qdbus_cast<QList<QDBusObjectPath>>(found[0]).isEmpty() ||
           !qdbus_cast<QList<QDBusObjectPath>>(found[1]).isEmpty();
}

void SecretServiceKeychain::write(const QString& service, const QString& account,
                                  const QByteArray& data)
{
    run([service, account, data] {
        auto* job = new QKeychain::WritePasswordJob(service);
        job->setKey(account);
        job->setBinaryData(data);
        return job;
    });
}

void SecretServiceKeychain::remove(const QString& service, const QString& account)
{
    run([service, account] {
        auto* job = new QKeychain::DeletePasswordJob(service);
        job->setKey(account);
        return job;
    });
}
