#include "SingleInstance.h"

#include "BundleInfo.h"
#include "PeerCredentials.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

// Every send() passes MSG_NOSIGNAL (POSIX.1-2008): a peer that hung up must not end
// the process with SIGPIPE.
namespace {
const QByteArray ack = QByteArrayLiteral("ok\n");
const QByteArray refusal = QByteArrayLiteral("refused ");

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
    if (m_spare >= 0)
        ::close(m_spare);
}

QString SingleInstance::defaultSocketPath()
{
    QString dir = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (dir.isEmpty() || !QFileInfo(dir).isDir())
        dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    return dir + u'/' + BundleInfo::current().identifier + QStringLiteral(".socket");
}

SingleInstance::Outcome SingleInstance::sendToRunning(const QString& socketPath,
                                                      const Request& request, int timeoutMs,
                                                      QString* reason)
{
    const QByteArray message = request.encode();
    if (message.size() > InstanceMessage::MaxBytes) {
        if (reason)
            *reason = QStringLiteral("the request is too large (%1 bytes; at most %2)")
                          .arg(message.size())
                          .arg(InstanceMessage::MaxBytes);
        return Outcome::Refused;
    }
    const QDeadlineTimer deadline(timeoutMs);
    const int fd = connectTo(socketPath, deadline);
    if (fd < 0)
        return Outcome::NoAnswer;
    QByteArray reply;
    // A busy instance refuses and hangs up without reading: the write may then fail
    // while its answer is already waiting to be read.
    sendAll(fd, message, deadline);
    {
        char chunk[512];
        while (!reply.contains('\n') && reply.size() < 4096 && waitFor(fd, POLLIN, deadline)) {
            const ssize_t got = ::recv(fd, chunk, sizeof(chunk), 0);
            if (got > 0)
                reply.append(chunk, got);
            else if (got == 0 || (errno != EINTR && errno != EAGAIN))
                break;
        }
    }
    ::close(fd);
    if (reply == ack)
        return Outcome::Delivered;
    if (reply.startsWith(refusal)) {
        if (reason)
            *reason = QString::fromUtf8(reply.mid(refusal.size()).trimmed());
        return Outcome::Refused;
    }
    return Outcome::NoAnswer;
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
    m_spare = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    m_accepting = new QSocketNotifier(qintptr(fd), QSocketNotifier::Read, this);
    connect(m_accepting, &QSocketNotifier::activated, this, &SingleInstance::acceptConnections);
    m_resumeAccepting = new QTimer(this);
    m_resumeAccepting->setSingleShot(true);
    m_resumeAccepting->setInterval(200);
    connect(m_resumeAccepting, &QTimer::timeout, m_accepting,
            [this] { m_accepting->setEnabled(true); });
    return true;
}

void SingleInstance::acceptConnections()
{
    for (;;) {
        int fd = ::accept(m_listener, nullptr, nullptr);
        if (fd < 0) {
            if (errno == EINTR)
                continue;
            if (errno == EMFILE || errno == ENFILE) {
                // Out of descriptors the listener stays readable: without this the
                // loop would spin. The spare descriptor makes room to turn one peer
                // away; otherwise wait a little before trying again.
                if (m_spare >= 0) {
                    ::close(m_spare);
                    m_spare = -1;
                    fd = ::accept(m_listener, nullptr, nullptr);
                    if (fd >= 0)
                        ::close(fd);
                    m_spare = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
                    if (fd >= 0)
                        continue; // there may be more waiting
                    return;       // nobody was waiting after all
                }
                m_accepting->setEnabled(false);
                m_resumeAccepting->start();
            }
            return; // EAGAIN: all taken
        }
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
        if (!PeerCredentials::isSameUser(fd)) {
            ::close(fd);
            continue;
        }
        if (m_peers.size() >= MaxPeers) {
            const QByteArray busy = refusal + "busy, try again\n";
            ::send(fd, busy.constData(), size_t(busy.size()), MSG_NOSIGNAL);
            ::close(fd);
            continue;
        }
        Peer& peer = m_peers[fd];
        peer.notifier = new QSocketNotifier(qintptr(fd), QSocketNotifier::Read, this);
        connect(peer.notifier, &QSocketNotifier::activated, this, [this, fd] { readFrom(fd); });
        peer.timeout = new QTimer(this);
        peer.timeout->setSingleShot(true);
        connect(peer.timeout, &QTimer::timeout, this, [this, fd] { drop(fd); });
        peer.timeout->start(PeerTimeoutMs);
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
            std::min<qsizetype>(sizeof(chunk), InstanceMessage::MaxBytes + 1 - buffer.size());
        const ssize_t got = ::recv(fd, chunk, size_t(room), 0);
        if (got > 0) {
            buffer.append(chunk, got);
            if (buffer.contains('\n') || buffer.size() > InstanceMessage::MaxBytes)
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
    if (newline < 0) {
        answer(fd, refusal + "the request is too large\n");
        return;
    }
    Request request;
    if (!InstanceMessage::parse(buffer.left(newline), &request)) {
        answer(fd, refusal + "the request is not understood\n");
        return;
    }
    answer(fd, ack);
    if (request.url.isEmpty())
        emit activateRequested(request.activation);
    else
        emit urlReceived(QUrl(request.url, QUrl::StrictMode), request.activation);
}

void SingleInstance::answer(int fd, const QByteArray& line)
{
    ::send(fd, line.constData(), size_t(line.size()), MSG_NOSIGNAL);
    drop(fd);
}

void SingleInstance::drop(int fd)
{
    // Called from the notifier's own signal, so it may only go later.
    if (!m_peers.contains(fd))
        return;
    const Peer peer = m_peers.take(fd);
    if (peer.notifier) {
        peer.notifier->setEnabled(false);
        peer.notifier->deleteLater();
    }
    if (peer.timeout)
        peer.timeout->deleteLater();
    ::close(fd);
}
