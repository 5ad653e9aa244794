#include "FakeSyncServer.h"

#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

namespace {
QString routeKey(const QByteArray& method, const QString& path)
{
    return QString::fromLatin1(method) + u' ' + path;
}

QByteArray reason(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 204:
        return "No Content";
    case 302:
        return "Found";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 500:
        return "Internal Server Error";
    default:
        return "Status";
    }
}
} // namespace

bool FakeSyncServer::Request::hasHeader(const QByteArray& name) const
{
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

QByteArray FakeSyncServer::Request::header(const QByteArray& name) const
{
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

FakeSyncServer::Response FakeSyncServer::Response::json(int status, const QByteArray& body)
{
    return Response{status, body, {{"Content-Type", "application/json"}}, 0, false};
}

FakeSyncServer::FakeSyncServer(QObject* parent)
    : QObject(parent)
    , m_server(new QTcpServer(this))
{
    m_server->listen(QHostAddress::LocalHost, 0);
    connect(m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server->nextPendingConnection()) {
            socket->setParent(this);
            m_buffers.insert(socket, {});
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readFrom(socket); });
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                m_buffers.remove(socket);
                socket->deleteLater();
            });
        }
    });
}

FakeSyncServer::~FakeSyncServer() = default;

QUrl FakeSyncServer::url() const
{
    return QUrl(u"http://127.0.0.1:" + QString::number(port()));
}

quint16 FakeSyncServer::port() const
{
    return m_server->serverPort();
}

void FakeSyncServer::on(const QByteArray& method, const QString& path, const Response& response)
{
    m_routes.insert(routeKey(method, path), response);
}

void FakeSyncServer::serveEmptyAccount()
{
    on("GET", QStringLiteral("/api/v1/tasks"), Response::json(200, R"({"data":[]})"));
    on("GET", QStringLiteral("/api/v1/habits"), Response::json(200, R"({"data":[]})"));
    on("GET", QStringLiteral("/api/v1/pomodoro"), Response::json(200, R"({"data":null})"));
    for (const char* path : {"/api/v1/tasks", "/api/v1/habits", "/api/v1/pomodoro"})
        on("PUT", QString::fromLatin1(path), Response::json(200, R"({"ok":true})"));
}

QList<FakeSyncServer::Request> FakeSyncServer::requestsFor(const QByteArray& method,
                                                           const QString& path) const
{
    QList<Request> out;
    for (const Request& r : m_requests) {
        if (r.method == method && r.path == path)
            out.append(r);
    }
    return out;
}

void FakeSyncServer::readFrom(QTcpSocket* socket)
{
    QByteArray& buffer = m_buffers[socket];
    buffer += socket->readAll();
    // Several requests may arrive on one kept-alive connection.
    for (;;) {
        const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
        if (headEnd < 0)
            return;
        const QList<QByteArray> lines = buffer.left(headEnd).split('\n');
        Request request;
        const QList<QByteArray> start = lines.value(0).trimmed().split(' ');
        request.method = start.value(0);
        const QByteArray target = start.value(1);
        const qsizetype q = target.indexOf('?');
        request.path = QString::fromLatin1(q < 0 ? target : target.left(q));
        request.query = q < 0 ? QString() : QString::fromLatin1(target.mid(q + 1));
        qsizetype length = 0;
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const QByteArray line = lines.at(i).trimmed();
            const qsizetype colon = line.indexOf(':');
            if (colon <= 0)
                continue;
            const QByteArray name = line.left(colon).trimmed();
            const QByteArray value = line.mid(colon + 1).trimmed();
            request.headers.append({name, value});
            if (name.compare("content-length", Qt::CaseInsensitive) == 0)
                length = value.toLongLong();
        }
        if (buffer.size() < headEnd + 4 + length)
            return;
        request.body = buffer.mid(headEnd + 4, length);
        buffer.remove(0, headEnd + 4 + length);

        m_requests.append(request);
        const Response response =
            m_routes.value(routeKey(request.method, request.path), m_fallback);
        emit requestReceived();
        if (response.delayMs > 0) {
            QPointer<QTcpSocket> guarded(socket);
            QTimer::singleShot(response.delayMs, this, [this, guarded, response] {
                if (guarded)
                    answer(guarded, response);
            });
        } else {
            answer(socket, response);
        }
        if (!m_buffers.contains(socket))
            return;
    }
}

void FakeSyncServer::answer(QTcpSocket* socket, const Response& response)
{
    if (response.drop) {
        socket->abort();
        return;
    }
    QByteArray out =
        "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + reason(response.status) + "\r\n";
    for (const auto& [name, value] : response.headers)
        out += name + ": " + value + "\r\n";
    out += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n\r\n";
    socket->write(out);
    if (response.trickleMs <= 0) {
        socket->write(response.body);
        return;
    }
    auto* trickle = new QTimer(socket);
    connect(trickle, &QTimer::timeout, socket, [socket, trickle, body = response.body]() mutable {
        socket->write(body.left(1));
        body.remove(0, 1);
        if (body.isEmpty())
            trickle->stop();
    });
    trickle->start(response.trickleMs);
}
