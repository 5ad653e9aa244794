#include "SingleInstance.h"

#include "BundleInfo.h"
#include "PeerCredentials.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSocketNotifier>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#ifndef MSG_NOSIGNAL
#define MSG_NOSIGNAL 0 // platforms without it set SO_NOSIGPIPE on the socket instead
#endif

namespace {
const QByteArray ack = QByteArrayLiteral("ok\n");

// The socket's address; false when the path does not fit.
bool addressOf(const QString& path, sockaddr_un* address)
{
    const QByteArray encoded = QFile::encodeName(path);
    std::memset(address, 0, sizeof(*address));
    address->sun_family = AF_UNIX;
    if (encoded.isEmpty() || size_t(encoded.size()) >= sizeof(address->sun_path))
        return false;
    std::memcpy(address->sun_path, encoded.constData(), size_t(encoded.size()));
    return true;
}

// A non-blocking stream socket that is not inherited by child processes.
int openSocket()
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0)
        return -1;
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
#ifdef SO_NOSIGPIPE
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof(on));
#endif
    return fd;
}

// Waits until `fd` is ready for `events`; false on timeout or error.
bool waitFor(int fd, short events, const QDeadlineTimer& deadline)
{
    pollfd p{fd, events, 0};
    for (;;) {
        const int r = ::poll(&p, 1, int(deadline.remainingTime()));
        if (r > 0)
            return true;
        if (r == 0 || errno != EINTR)
            return false;
    }
}

// Connects within the deadline; -1 when nobody accepts there.
int connectTo(const QString& path, const QDeadlineTimer& deadline)
{
    sockaddr_un address;
    if (!addressOf(path, &address))
        return -1;
    const int fd = openSocket();
    if (fd < 0)
        return -1;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0)
        return fd;
    // A full backlog answers EAGAIN; the peer may still accept in time.
    if ((errno == EAGAIN || errno == EINPROGRESS) && waitFor(fd, POLLOUT, deadline)) {
        int error = 0;
        socklen_t length = sizeof(error);
        if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0)
            return fd;
    }
    ::close(fd);
    return -1;
}

bool sendAll(int fd, QByteArray data, const QDeadlineTimer& deadline)
{
    while (!data.isEmpty()) {
        const ssize_t sent = ::send(fd, data.constData(), size_t(data.size()), MSG_NOSIGNAL);
        if (sent > 0) {
            data.remove(0, sent);
        } else if (sent < 0 && errno == EINTR) {
            continue;
        } else if (sent < 0 && errno == EAGAIN) {
            if (!waitFor(fd, POLLOUT, deadline))
                return false;
        } else {
            return false;
        }
    }
    return true;
}
} // namespace

SingleInstance::SingleInstance(const QString& socketPath, QObject* parent)
    : QObject(parent)
    , m_path(socketPath)
{}

SingleInstance::~SingleInstance()
{
    for (int fd : m_peers.keys())
        drop(fd);
    if (m_listener >= 0) {
        delete m_accepting;
        ::close(m_listener);
        QFile::remove(m_path);
    }
}

QString SingleInstance::defaultSocketPath()
{
    QString dir = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (dir.isEmpty() || !QFileInfo(dir).isDir())
        dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    return dir + u'/' + BundleInfo::current().identifier + QStringLiteral(".socket");
}

QByteArray SingleInstance::encodeMessage(const QUrl& url)
{
    QJsonObject o;
    if (url.isEmpty()) {
        o.insert(QStringLiteral("command"), QStringLiteral("activate"));
    } else {
        o.insert(QStringLiteral("command"), QStringLiteral("open"));
        o.insert(QStringLiteral("url"), url.toString(QUrl::FullyEncoded));
    }
    return QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
}

bool SingleInstance::parseMessage(const QByteArray& data, bool* activate, QUrl* url)
{
    if (data.size() > MaxMessageBytes)
        return false;
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return false;
    const QJsonObject o = doc.object();
    const QString command = o.value(QLatin1String("command")).toString();
    if (command == u"activate" && o.size() == 1) {
        *activate = true;
        return true;
    }
    if (command == u"open" && o.size() == 2 && o.value(QLatin1String("url")).isString()) {
        const QUrl parsed(o.value(QLatin1String("url")).toString(), QUrl::StrictMode);
        if (!parsed.isValid() || parsed.scheme().isEmpty())
            return false;
        *activate = false;
        *url = parsed;
        return true;
    }
    return false;
}

bool SingleInstance::sendToRunning(const QString& socketPath, const QUrl& url, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    const int fd = connectTo(socketPath, deadline);
    if (fd < 0)
        return false;
    QByteArray reply;
    if (sendAll(fd, encodeMessage(url), deadline)) {
        char chunk[16];
        while (reply.size() < ack.size() && waitFor(fd, POLLIN, deadline)) {
            const ssize_t got = ::recv(fd, chunk, sizeof(chunk), 0);
            if (got > 0)
                reply.append(chunk, got);
            else if (got == 0 || (errno != EINTR && errno != EAGAIN))
                break;
        }
    }
    ::close(fd);
    return reply == ack;
}

bool SingleInstance::listen(QString* error)
{
    sockaddr_un address;
    if (!addressOf(m_path, &address)) {
        *error = QStringLiteral("the socket path is too long");
        return false;
    }
    if (QFileInfo::exists(m_path)) {
        // Someone answering means a live instance: leave its socket alone.
        const int probe = connectTo(m_path, QDeadlineTimer(1000));
        if (probe >= 0) {
            ::close(probe);
            *error = QStringLiteral("another instance is running");
            return false;
        }
        QFile::remove(m_path);
    }
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    const int fd = openSocket();
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::chmod(address.sun_path, S_IRUSR | S_IWUSR) != 0 || ::listen(fd, 16) != 0) {
        *error = QString::fromLocal8Bit(std::strerror(errno));
        if (fd >= 0)
            ::close(fd);
        return false;
    }
    m_listener = fd;
    m_accepting = new QSocketNotifier(qintptr(fd), QSocketNotifier::Read, this);
    connect(m_accepting, &QSocketNotifier::activated, this, &SingleInstance::acceptConnections);
    return true;
}

void SingleInstance::acceptConnections()
{
    for (;;) {
        const int fd = ::accept(m_listener, nullptr, nullptr);
        if (fd < 0) {
            if (errno == EINTR)
                continue;
            return; // EAGAIN: all taken; anything else: try again on the next wake-up
        }
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
        if (!PeerCredentials::isSameUser(fd)) {
            ::close(fd);
            continue;
        }
        Peer& peer = m_peers[fd];
        peer.notifier = new QSocketNotifier(qintptr(fd), QSocketNotifier::Read, this);
        connect(peer.notifier, &QSocketNotifier::activated, this, [this, fd] { readFrom(fd); });
        readFrom(fd);
    }
}

void SingleInstance::readFrom(int fd)
{
    auto peer = m_peers.find(fd);
    if (peer == m_peers.end())
        return;
    QByteArray& buffer = peer->buffer;
    char chunk[4096];
    for (;;) {
        const qsizetype room =
            std::min<qsizetype>(sizeof(chunk), MaxMessageBytes + 1 - buffer.size());
        const ssize_t got = ::recv(fd, chunk, size_t(room), 0);
        if (got > 0) {
            buffer.append(chunk, got);
            if (buffer.contains('\n') || buffer.size() > MaxMessageBytes)
                break;
        } else if (got < 0 && errno == EINTR) {
            continue;
        } else if (got < 0 && errno == EAGAIN) {
            return; // the rest comes with the next wake-up
        } else {
            drop(fd); // closed before a whole message, or failed
            return;
        }
    }
    const qsizetype newline = buffer.indexOf('\n');
    bool activate = false;
    QUrl url;
    const bool ok = newline >= 0 && parseMessage(buffer.left(newline), &activate, &url);
    if (ok)
        ::send(fd, ack.constData(), size_t(ack.size()), MSG_NOSIGNAL);
    drop(fd);
    if (!ok)
        return;
    if (activate)
        emit activateRequested();
    else
        emit urlReceived(url);
}

void SingleInstance::drop(int fd)
{
    // Called from the notifier's own signal, so it may only go later.
    const Peer peer = m_peers.take(fd);
    peer.notifier->setEnabled(false);
    peer.notifier->deleteLater();
    ::close(fd);
}
