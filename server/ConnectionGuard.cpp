#include "ConnectionGuard.h"

#include <QPointer>
#include <QSslSocket>
#include <QTimer>

namespace {
const char* const idleTimerName = "tws_idle";
const char* const requestTimerName = "tws_request";

QTimer* timerOf(QTcpSocket* socket, const char* name)
{
    return socket->findChild<QTimer*>(QLatin1String(name), Qt::FindDirectChildrenOnly);
}

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
    if (m_draining || m_sockets.size() >= m_limits.maxConnections) {
        refuse(socket, 503, "too many connections");
        return;
    }
    m_sockets.insert(socket);
    connect(socket, &QObject::destroyed, this, [this, socket] {
        m_sockets.remove(socket);
        checkDrained();
    });
    connect(socket, &QAbstractSocket::disconnected, socket, &QObject::deleteLater);

    auto* idle = new QTimer(socket);
    idle->setObjectName(QLatin1String(idleTimerName));
    idle->setSingleShot(true);
    idle->setInterval(m_limits.idleMs);
    connect(idle, &QTimer::timeout, socket, [socket] { socket->abort(); });
    idle->start();
    auto* request = new QTimer(socket);
    request->setObjectName(QLatin1String(requestTimerName));
    request->setSingleShot(true);
    request->setInterval(m_limits.requestMs);
    connect(request, &QTimer::timeout, socket, [socket] {
        if (socket->bytesAvailable() > 0)
            refuse(socket, 408, "the request did not arrive in time");
    });
    // Connected before the HTTP parser's own slot, so every check runs first.
    connect(socket, &QIODevice::readyRead, this, [this, socket] { inspect(socket); });
    connect(socket, &QIODevice::bytesWritten, idle, qOverload<>(&QTimer::start));

    if (auto* tls = qobject_cast<QSslSocket*>(socket)) {
        tls->setSslConfiguration(m_tls);
        connect(tls, &QSslSocket::sslErrors, tls, [tls] { tls->abort(); });
        tls->startServerEncryption();
    }
    addPendingConnection(socket);
}

void ConnectionGuard::inspect(QTcpSocket* socket)
{
    timerOf(socket, idleTimerName)->start();
    // The parser reads a request only once it is whole and gives back what it took
    // until then, so what is available now is the request under way (and any next).
    const qint64 available = socket->bytesAvailable();
    if (available <= 0)
        return;
    QTimer* request = timerOf(socket, requestTimerName);
    if (!request->isActive())
        request->start();

    const QByteArray head = socket->peek(std::min(available, m_limits.maxHeaderBytes + 4));
    const qsizetype end = head.indexOf("\r\n\r\n");
    if (end < 0) {
        if (available > m_limits.maxHeaderBytes)
            refuse(socket, 431, "request headers too large");
        return;
    }
    if (contentLength(head.left(end)) > m_limits.maxBodyBytes ||
        available > m_limits.maxHeaderBytes + m_limits.maxBodyBytes) {
        refuse(socket, 413, "request body too large");
        return;
    }
    // After the parser has had its turn: a request taken whole ends the deadline.
    QTimer::singleShot(0, socket, [socket, request] {
        if (socket->bytesAvailable() == 0)
            request->stop();
    });
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
    for (QTcpSocket* socket : std::as_const(m_sockets)) {
        if (socket->bytesAvailable() == 0)
            socket->disconnectFromHost();
    }
    QTimer::singleShot(graceMs, this, [this] {
        for (QTcpSocket* socket : m_sockets.values())
            socket->abort();
        emit drained();
    });
    checkDrained();
}

void ConnectionGuard::checkDrained()
{
    if (m_draining && m_sockets.isEmpty())
        QTimer::singleShot(0, this, &ConnectionGuard::drained);
}
