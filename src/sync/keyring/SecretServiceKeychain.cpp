#include "SecretServiceKeychain.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusServiceWatcher>
#include <QDeadlineTimer>
#include <QThread>
#include <QWaitCondition>
#include <qt6keychain/keychain.h>

#include <memory>
#include <utility>

struct SecretServiceKeychain::Outcome
{
    QMutex lock;
    QWaitCondition done;
    bool finished = false;
    KeychainReply reply;
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
    m_thread->quit();
    // A job stuck in a hung secret store does not block the loop from quitting.
    // Once the thread has ended its object is deleted here: no loop is left to
    // run a deleteLater.
    m_thread->wait(QDeadlineTimer(std::chrono::seconds(2)));
    if (m_thread->isFinished()) {
        delete m_jobs;
        delete m_thread;
    }
    m_jobs = nullptr;
    m_thread = nullptr;
}

KeychainReply SecretServiceKeychain::run(const std::function<QKeychain::Job*()>& make)
{
    QObject* jobs = worker();
    auto outcome = std::make_shared<Outcome>();
    auto finish = [outcome](KeychainReply reply) {
        QMutexLocker locker(&outcome->lock);
        outcome->finished = true;
        outcome->reply = std::move(reply);
        outcome->done.wakeAll();
    };
    const bool posted = QMetaObject::invokeMethod(
        jobs,
        [make, finish] {
            QKeychain::Job* job = make();
            job->setAutoDelete(true);
            QObject::connect(job, &QKeychain::Job::finished, job, [finish](QKeychain::Job* j) {
                KeychainReply reply;
                switch (j->error()) {
                case QKeychain::NoError:
                    reply.outcome = KeychainReply::Outcome::Done;
                    if (auto* read = qobject_cast<QKeychain::ReadPasswordJob*>(j))
                        reply.data = read->binaryData();
                    break;
                case QKeychain::EntryNotFound:
                    reply.outcome = KeychainReply::Outcome::Missing;
                    break;
                default:
                    reply.outcome = KeychainReply::Outcome::Failed;
                    reply.why = j->errorString();
                    break;
                }
                finish(std::move(reply));
            });
            job->start();
        },
        Qt::QueuedConnection);
    if (!posted)
        return {KeychainReply::Outcome::Failed, {}, QStringLiteral("the keyring is shutting down")};

    QMutexLocker locker(&outcome->lock);
    QDeadlineTimer deadline(m_limit);
    while (!outcome->finished) {
        if (!outcome->done.wait(&outcome->lock, deadline))
            break;
    }
    if (!outcome->finished) {
        qWarning("KeychainStore request failed: no answer from the secret store within %lld ms",
                 static_cast<long long>(m_limit.count()));
        return noAnswer();
    }
    return outcome->reply;
}

KeychainReply SecretServiceKeychain::noAnswer()
{
    return {KeychainReply::Outcome::NoAnswer, {}, QStringLiteral("the keyring did not answer")};
}

KeychainReply SecretServiceKeychain::read(const QString& service, const QString& account)
{
    switch (probe(service, account)) {
    case Presence::Absent:
        return {KeychainReply::Outcome::Missing, {}, {}};
    case Presence::NoKeyring:
        return {KeychainReply::Outcome::NotRunning, {}, QStringLiteral("no keyring is running")};
    case Presence::NoAnswer:
        return noAnswer();
    case Presence::Locked:
        // Asking would put an unlock prompt up at every retry; the token is read
        // once the keyring is unlocked (at log-in, or when the user signs in).
        return {KeychainReply::Outcome::NoAnswer, {}, QStringLiteral("the keyring is locked")};
    case Presence::MayHold:
        break;
    }
    return run([service, account] {
        auto* job = new QKeychain::ReadPasswordJob(service);
        job->setKey(account);
        return job;
    });
}

void SecretServiceKeychain::whenKeyringStarts(QObject* owner, std::function<void()> started)
{
    const QString name = QStringLiteral("org.freedesktop.secrets");
    QDBusConnection bus = QDBusConnection::sessionBus();
    auto* watcher =
        new QDBusServiceWatcher(name, bus, QDBusServiceWatcher::WatchForRegistration, owner);
    auto fired = std::make_shared<bool>(false);
    auto fire = [watcher, fired, started = std::move(started)] {
        if (std::exchange(*fired, true))
            return;
        watcher->deleteLater();
        started();
    };
    QObject::connect(watcher, &QDBusServiceWatcher::serviceRegistered, watcher, fire);
    // It may have started between the read and now; this thread may block.
    if (bus.interface() && bus.interface()->isServiceRegistered(name).value())
        fire();
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

SecretServiceKeychain::Presence SecretServiceKeychain::probe(const QString& service,
                                                             const QString& account)
{
    if (mayUseWallet())
        return Presence::MayHold;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return Presence::NoKeyring; // the secret-store library needs the same bus
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
    if (reply.type() == QDBusMessage::ErrorMessage) {
        const QString error = reply.errorName();
        if (error == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown"))
            return Presence::NoKeyring;
        if (error == QLatin1String("org.freedesktop.DBus.Error.NoReply") ||
            error == QLatin1String("org.freedesktop.DBus.Error.Timeout"))
            return Presence::NoAnswer;
        return Presence::MayHold; // anything else is left to the secret-store library
    }
    const QList<QVariant> found = reply.arguments(); // unlocked and locked item paths
    if (found.size() != 2)
        return Presence::MayHold;
    const bool unlocked = !qdbus_cast<QList<QDBusObjectPath>>(found[0]).isEmpty();
    const bool locked = !qdbus_cast<QList<QDBusObjectPath>>(found[1]).isEmpty();
    if (!unlocked && locked)
        return Presence::Locked;
    return unlocked ? Presence::MayHold : Presence::Absent;
}

KeychainReply SecretServiceKeychain::write(const QString& service, const QString& account,
                                           const QByteArray& data)
{
    switch (probe(service, account)) {
    case Presence::NoKeyring:
        return {KeychainReply::Outcome::Failed, {}, QStringLiteral("no keyring is running")};
    case Presence::NoAnswer:
        return noAnswer();
    case Presence::Absent:
    case Presence::Locked: // the secret-store library asks to unlock it
    case Presence::MayHold:
        break;
    }
    return run([service, account, data] {
        auto* job = new QKeychain::WritePasswordJob(service);
        job->setKey(account);
        job->setBinaryData(data);
        return job;
    });
}

KeychainReply SecretServiceKeychain::remove(const QString& service, const QString& account)
{
    switch (probe(service, account)) {
    case Presence::Absent:
    case Presence::NoKeyring:
        return {KeychainReply::Outcome::Missing, {}, {}};
    case Presence::NoAnswer:
        return noAnswer();
    case Presence::Locked:
    case Presence::MayHold:
        break;
    }
    return run([service, account] {
        auto* job = new QKeychain::DeletePasswordJob(service);
        job->setKey(account);
        return job;
    });
}
