#include "ConnectionGuard.h"

#include <QPointer>
#include <QSslSocket>
#include <QTimer>

namespace {
// The Content-Length of the request whose headers are `head`; -1 without one.
qint64 contentLength(const QByteArray& head)
{
    for (const QByteArray& line : head.split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 &&
            line.left(colon).trimmed().compare("content-length", Qt::CaseInsensitive) == 0) {
            bool ok = false;
            const qint64 length = line.mid(colon + 1).trimmed().toLongLong(&ok);
            return ok ? length : std::numeric_limits<qint64>::max();
        }
    }
    return -1;
}
} // namespace

ConnectionGuard::ConnectionGuard(Limits limits, QObject* parent)
    : QTcpServer(parent)
    , m_limits(limits)
{}

void ConnectionGuard::incomingConnection(qintptr descriptor)
{
    QTcpSocket* socket = isTls() ? new QSslSocket(this) : new QTcpSocket(this);
    if (!socket->setSocketDescriptor(descriptor)) {
        delete socket;
        return;
    }
    if (m_draining || m_incoming.size() >= m_limits.maxConnections) {
        refuse(socket, 503, "too many connections");
        return;
    }
    Incoming& incoming = m_incoming[socket];
    connect(socket, &QObject::destroyed, this, [this, socket] {
        m_incoming.remove(socket);
        checkDrained();
    });
    connect(socket, &QAbstractSocket::disconnected, socket, &QObject::deleteLater);

    incoming.idle = new QTimer(socket);
    incoming.idle->setSingleShot(true);
    incoming.idle->setInterval(m_limits.idleMs);
    connect(incoming.idle, &QTimer::timeout, socket, &QAbstractSocket::abort);
    incoming.idle->start();
    incoming.request = new QTimer(socket);
    incoming.request->setSingleShot(true);
    incoming.request->setInterval(m_limits.requestMs);
    connect(incoming.request, &QTimer::timeout, socket,
            [socket] { refuse(socket, 408, "the request did not arrive in time"); });
    // Connected before the HTTP parser's own slot, so every check runs first.
    connect(socket, &QIODevice::readyRead, this, [this, socket] { screen(socket); });
    connect(socket, &QIODevice::bytesWritten, incoming.idle, qOverload<>(&QTimer::start));

    if (auto* tls = qobject_cast<QSslSocket*>(socket)) {
        tls->setSslConfiguration(*m_tls);
        connect(tls, &QSslSocket::sslErrors, tls, [tls] { tls->abort(); });
        tls->startServerEncryption();
    }
    addPendingConnection(socket);
}

void ConnectionGuard::screen(QTcpSocket* socket)
{
    const auto found = m_incoming.find(socket);
    if (found == m_incoming.end())
        return;
    Incoming& in = *found;
    in.idle->start();
    const qint64 fresh = socket->bytesAvailable();
    if (fresh <= 0)
        return;
    if (in.received == 0)
        in.request->start();
    in.received += fresh;
    if (!in.headerDone) {
        in.head += socket->peek(std::min(fresh, m_limits.maxHeaderBytes + 4 - in.head.size()));
        const qsizetype end = in.head.indexOf("\r\n\r\n");
        if (end < 0) {
            if (in.head.size() > m_limits.maxHeaderBytes)
                refuse(socket, 431, "request headers too large");
            return;
        }
        in.headerDone = true;
        if (contentLength(in.head.left(end)) > m_limits.maxBodyBytes) {
            refuse(socket, 413, "request body too large");
            return;
        }
        in.head.clear();
    }
    if (in.received > m_limits.maxHeaderBytes + m_limits.maxBodyBytes)
        refuse(socket, 413, "request body too large");
}

void ConnectionGuard::requestTaken(QTcpSocket* socket)
{
    const auto found = m_incoming.find(socket);
    if (found == m_incoming.end())
        return;
    found->request->stop();
    found->head.clear();
    found->headerDone = false;
    found->received = 0;
}

void ConnectionGuard::refuse(QTcpSocket* socket, int status, const QByteArray& reason)
{
    static const QHash<int, QByteArray> phrases{{408, "Request Timeout"},
                                                {413, "Payload Too Large"},
                                                {431, "Request Header Fields Too Large"},
                                                {503, "Service Unavailable"}};
    const QByteArray body = "{\"error\":\"" + reason + "\"}";
    socket->readAll(); // nothing of it reaches the parser
    disconnect(socket, &QIODevice::readyRead, nullptr, nullptr);
    connect(socket, &QIODevice::readyRead, socket, [socket] { socket->readAll(); });
    socket->write("HTTP/1.1 " + QByteArray::number(status) + ' ' + phrases.value(status) +
                  "\r\nContent-Type: application/json\r\nContent-Length: " +
                  QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
    socket->disconnectFromHost();
    if (socket->state() == QAbstractSocket::UnconnectedState)
        socket->deleteLater();
    else
        connect(socket, &QAbstractSocket::disconnected, socket, &QObject::deleteLater,
                Qt::UniqueConnection);
}

void ConnectionGuard::drain(int graceMs)
{
    m_draining = true;
    close();
    // Idle keep-alive connections go now; one with a request under way may finish it.
    for (auto it = m_incoming.cbegin(); it != m_incoming.cend(); ++it) {
        if (it->received == 0)
            it.key()->disconnectFromHost();
    }
    QTimer::singleShot(graceMs, this, [this] {
        for (QTcpSocket* socket : m_incoming.keys())
            socket->abort();
        emit drained();
    });
    checkDrained();
}

void ConnectionGuard::checkDrained()
{
    if (m_draining && m_incoming.isEmpty())
        QTimer::singleShot(0, this, &ConnectionGuard::drained);
}
