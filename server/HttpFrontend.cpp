#include "HttpFrontend.h"

#include "ConnectionGuard.h"

#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QMetaEnum>
#include <QSslSocket>

namespace {
QByteArray methodName(QHttpServerRequest::Method method)
{
    const char* key = QMetaEnum::fromType<QHttpServerRequest::Method>().valueToKey(int(method));
    return key ? QByteArray(key).toUpper() : QByteArrayLiteral("UNKNOWN");
}
} // namespace

HttpFrontend::HttpFrontend(Handler handler, QObject* parent)
    : QAbstractHttpServer(parent)
    , m_handler(std::move(handler))
{}

void HttpFrontend::serve(ConnectionGuard* guard)
{
    m_guard = guard;
    bind(guard);
}

bool HttpFrontend::handleRequest(const QHttpServerRequest& request, QTcpSocket* socket)
{
    HttpCall call;
    call.method = methodName(request.method());
    call.path = request.url().path();
    call.query = request.query();
    call.headers = request.headers();
    call.body = request.body();
    call.peer = request.remoteAddress();
    call.secure = qobject_cast<QSslSocket*>(socket) != nullptr;
    if (m_guard)
        m_guard->requestTaken(socket);
    const HttpAnswer answer = m_handler(call);

    QHttpServerResponder responder = makeResponder(request, socket);
    responder.writeStatusLine(QHttpServerResponder::StatusCode(answer.status));
    if (!answer.contentType.isEmpty())
        responder.writeHeader("Content-Type", answer.contentType);
    responder.writeHeader("Content-Length", QByteArray::number(answer.body.size()));
    for (const auto& [name, value] : answer.headers)
        responder.writeHeader(name, value);
    responder.writeBody(call.method == "HEAD" ? QByteArray() : answer.body);
    return true;
}

void HttpFrontend::missingHandler(const QHttpServerRequest& request, QTcpSocket* socket)
{
    makeResponder(request, socket).write(QHttpServerResponder::StatusCode::NotFound);
}
