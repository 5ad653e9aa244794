#include "HttpConnection.h"

#include "HttpResponseWriter.h"
#include "TrustedProxies.h"

#include <QSslSocket>
#include <QTimer>
#include <QUrl>

#include <cstdio>

HttpConnection::HttpConnection(quint64 id, QAbstractSocket* socket,
                               HttpRequestParser::Limits limits, Timeouts timeouts,
                               const TrustedProxies& proxies, Dispatch dispatch, QObject* parent)
    : QObject(parent)
    , m_id(id)
    , m_socket(socket)
    , m_parser(limits)
    , m_timeouts(timeouts)
    , m_proxies(proxies)
    , m_dispatch(std::move(dispatch))
    , m_timer(new QTimer(this))
{
    socket->setParent(this);
    m_timer->setSingleShot(true);
    connect(socket, &QIODevice::readyRead, this, &HttpConnection::readIncoming);
    connect(socket, &QAbstractSocket::disconnected, this, [this] { emit closed(m_id); });
    connect(socket, &QAbstractSocket::errorOccurred, this, [this] {
        if (m_socket && m_socket->state() == QAbstractSocket::UnconnectedState)
            emit closed(m_id);
    });
    // A connection that sends nothing at all (or never finishes a TLS handshake)
    // is an idle one.
    armIdle();
}

HttpConnection::~HttpConnection()
{
    if (m_socket)
        m_socket->abort();
}

void HttpConnection::armIdle()
{
    m_timer->disconnect();
    connect(m_timer, &QTimer::timeout, this, [this] {
        if (m_socket)
            m_socket->abort();
        emit closed(m_id);
    });
    m_timer->start(m_timeouts.idleMs);
}

void HttpConnection::armRequest()
{
    m_timer->disconnect();
    connect(m_timer, &QTimer::timeout, this,
            [this] { refuse(408, QStringLiteral("the request did not arrive in time")); });
    m_timer->start(m_timeouts.requestMs);
}

void HttpConnection::readIncoming()
{
    if (!m_socket)
        return;
    const QByteArray incoming = m_socket->readAll();
    // An unbuffered socket learns that the peer closed only as it reads, and
    // says so by its state alone, with no signal.
    if (m_socket->state() == QAbstractSocket::UnconnectedState) {
        emit closed(m_id);
        return;
    }
    if (m_closing)
        return; // what follows a refusal is not read, only drained
    const bool wasEmpty = m_buffer.isEmpty() && !m_parser.midRequest();
    m_buffer += incoming;
    if (m_inFlight)
        return; // taken up once the answer is out
    if (wasEmpty && !m_buffer.isEmpty())
        armRequest();
    process();
}

void HttpConnection::process()
{
    while (!m_inFlight && !m_closing) {
        switch (m_parser.next(m_buffer)) {
        case HttpRequestParser::Step::NeedMore:
            if (m_parser.awaitsContinue() && !m_continueSent) {
                m_socket->write("HTTP/1.1 100 Continue\r\n\r\n");
                m_continueSent = true;
            }
            if (m_buffer.isEmpty() && !m_parser.midRequest())
                armIdle();
            return;
        case HttpRequestParser::Step::Refuse:
            refuse(m_parser.refusalStatus(), m_parser.refusalReason());
            return;
        case HttpRequestParser::Step::Request:
            break;
        }
        m_timer->stop();
        m_continueSent = false;
        HttpCall call = m_parser.takeCall();
        call.peer = m_socket->peerAddress();
        call.secure = qobject_cast<QSslSocket*>(m_socket.data()) != nullptr;
        m_proxies.resolve(call);
        m_keepAlive = m_parser.keepAlive();
        m_head = call.method == "HEAD";
        m_inFlight = true;
        // What readAll() grew stays allocated otherwise, for as long as the
        // answer takes: a minute for a client on the change feed.
        if (m_buffer.isEmpty())
            m_buffer.clear();
        if (m_accessLog) {
            m_logClient = call.client.toString();
            m_logRequest =
                call.method + ' ' + QUrl::toPercentEncoding(call.path, "/-._~!$&'()*+,;=:@");
            m_started.start();
        }
        m_dispatch(m_id, std::move(call));
    }
}

void HttpConnection::answer(const HttpAnswer& answer)
{
    if (!m_socket || !m_inFlight)
        return;
    m_inFlight = false;
    const bool keepAlive = m_keepAlive && !m_closing;
    const QByteArray bytes = HttpResponseWriter::write(answer, m_head, keepAlive);
    m_socket->write(bytes);
    if (m_accessLog)
        // Only the path: a query or header may carry what the log must not keep.
        std::fprintf(stderr, "tidewell-server: %s \"%s\" %d %lld %.1fms\n", qPrintable(m_logClient),
                     m_logRequest.constData(), answer.status,
                     static_cast<long long>(answer.body.size()),
                     double(m_started.nsecsElapsed()) / 1e6);
    if (!keepAlive) {
        m_closing = true;
        m_socket->disconnectFromHost();
        return;
    }
    if (!m_buffer.isEmpty())
        armRequest();
    else
        armIdle();
    process();
    // More may have arrived while the request was handled.
    if (!m_inFlight && m_socket && m_socket->bytesAvailable() > 0)
        readIncoming();
}

void HttpConnection::closeWhenIdle()
{
    if (m_inFlight) {
        m_keepAlive = false;
        return;
    }
    m_closing = true;
    if (m_socket)
        m_socket->disconnectFromHost();
}

void HttpConnection::refuse(int status, const QString& reason)
{
    if (!m_socket || m_closing)
        return;
    m_closing = true;
    m_timer->stop();
    m_buffer.clear();
    m_socket->write(HttpResponseWriter::write(HttpAnswer::error(status, reason), false, false));
    m_socket->disconnectFromHost();
}
