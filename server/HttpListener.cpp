#include "HttpListener.h"

#include "TrustedProxies.h"

#include <QPointer>
#include <QSslSocket>
#include <QTimer>

HttpListener::HttpListener(Limits limits, const TrustedProxies& proxies, Dispatch dispatch,
                           QObject* parent)
    : QTcpServer(parent)
    , m_limits(limits)
    , m_proxies(proxies)
    , m_dispatch(std::move(dispatch))
{
    // Apps on the change feed all come back at once after a restart or an outage:
    // a short queue of unaccepted connections would reset most of them.
    setListenBacklogSize(1024);
}

void HttpListener::incomingConnection(qintptr descriptor)
{
    // Plain connections unbuffered (a QTcpSocket always buffers, and keeps a 16 kB
    // read block for its whole life, while a client on the change feed lives
    // long); TLS needs its buffers.
    QAbstractSocket* socket =
        m_tls ? new QSslSocket(this) : new QAbstractSocket(QAbstractSocket::TcpSocket, this);
    const QIODevice::OpenMode mode =
        m_tls ? QIODevice::ReadWrite : QIODevice::ReadWrite | QIODevice::Unbuffered;
    if (!socket->setSocketDescriptor(descriptor, QAbstractSocket::ConnectedState, mode)) {
        delete socket;
        return;
    }
    const QHostAddress peer = socket->peerAddress();
    const QString address = peer.toString();
    const bool capped = !m_proxies.trusts(peer);
    if (m_draining || m_connections.size() >= m_limits.maxConnections ||
        (capped && m_perAddress.value(address) >= m_limits.maxPerAddress)) {
        if (m_tls) {
            // Plain text cannot be answered to a TLS client; it would only read
            // garbage. The connection just closes.
            socket->abort();
            socket->deleteLater();
            return;
        }
        socket->write("HTTP/1.1 503 Service Unavailable\r\nContent-Type: application/json\r\n"
                      "Content-Length: 32\r\nRetry-After: 5\r\nConnection: close\r\n\r\n"
                      "{\"error\":\"too many connections\"}");
        socket->disconnectFromHost();
        if (socket->state() == QAbstractSocket::UnconnectedState)
            socket->deleteLater();
        else
            connect(socket, &QAbstractSocket::disconnected, socket, &QObject::deleteLater);
        return;
    }

    const quint64 id = m_nextId++;
    auto* connection = new HttpConnection(
        id, socket, {m_limits.maxHeaderBytes, m_limits.maxBodyBytes},
        {m_limits.idleMs, m_limits.requestMs}, m_proxies,
        [this](quint64 id, HttpCall call) {
            // The reply comes from a worker thread: it is queued to this one.
            m_dispatch(std::move(call), [this, id](HttpAnswer answer) {
                QMetaObject::invokeMethod(
                    this, [this, id, answer = std::move(answer)] { deliver(id, answer); },
                    Qt::QueuedConnection);
            });
        },
        this);
    connection->setAccessLog(m_accessLog);
    m_connections.insert(id, connection);
    m_addressOf.insert(id, address);
    ++m_perAddress[address];
    connect(connection, &HttpConnection::closed, this, &HttpListener::forget, Qt::QueuedConnection);

    if (auto* tls = qobject_cast<QSslSocket*>(socket)) {
        tls->setSslConfiguration(*m_tls);
        connect(tls, &QSslSocket::sslErrors, tls, [tls] { tls->abort(); });
        tls->startServerEncryption();
    }
}

void HttpListener::deliver(quint64 id, const HttpAnswer& answer)
{
    if (HttpConnection* connection = m_connections.value(id)) {
        connection->answer(answer);
        if (m_draining)
            connection->closeWhenIdle();
    }
}

void HttpListener::forget(quint64 id)
{
    HttpConnection* connection = m_connections.take(id);
    if (!connection)
        return;
    const QString address = m_addressOf.take(id);
    if (--m_perAddress[address] <= 0)
        m_perAddress.remove(address);
    connection->deleteLater();
    checkDrained();
}

void HttpListener::drain(int graceMs)
{
    m_draining = true;
    close();
    // Idle keep-alive connections go now; one with a request under way may finish it.
    for (HttpConnection* connection : std::as_const(m_connections)) {
        if (!connection->busy())
            connection->closeWhenIdle();
    }
    QTimer::singleShot(graceMs, this, [this] {
        for (const quint64 id : m_connections.keys())
            forget(id);
        checkDrained();
    });
    checkDrained();
}

void HttpListener::checkDrained()
{
    if (m_draining && m_connections.isEmpty() && !m_drainedSent) {
        m_drainedSent = true;
        QTimer::singleShot(0, this, &HttpListener::drained);
    }
}
