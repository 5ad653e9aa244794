#include "QtHttpTransport.h"

#include <QCoro/QCoroNetworkReply>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <memory>

namespace {
struct ReplyDeleter
{
    void operator()(QNetworkReply* reply) const
    {
        reply->disconnect();
        reply->deleteLater();
    }
};
} // namespace

QCoro::Task<HttpReply> QtHttpTransport::send(HttpRequest request, QPointer<QObject> scope)
{
    QNetworkRequest wire(request.url);
    wire.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                      QNetworkRequest::ManualRedirectPolicy);
    for (const auto& [name, value] : std::as_const(request.headers))
        wire.setRawHeader(name, value);

    HttpReply result;
    std::unique_ptr<QNetworkReply, ReplyDeleter> reply(
        request.method == "GET" ? m_network.get(wire)
        : request.method == "PUT"
            ? m_network.put(wire, request.body)
            : m_network.sendCustomRequest(wire, request.method, request.body));
    QNetworkReply* raw = reply.get();
    const qint64 limit = request.maxReplySize;
    auto checkSize = [raw, limit, &result](qint64 received, qint64 total) {
        if (limit > 0 && !result.tooLarge && (received > limit || total > limit)) {
            result.tooLarge = true;
            raw->abort();
        }
    };
    connect(raw, &QNetworkReply::downloadProgress, raw, checkSize);
    connect(raw, &QNetworkReply::metaDataChanged, raw, [raw, checkSize] {
        checkSize(0, raw->header(QNetworkRequest::ContentLengthHeader).toLongLong());
    });
    QMetaObject::Connection cancel;
    if (scope)
        cancel = connect(scope.data(), &QObject::destroyed, raw, &QNetworkReply::abort);

    // Two limits, each of which reads as what it is: a server that goes silent, and
    // one that keeps a request alive by trickling a byte now and then.
    std::optional<QString> timedOut;
    QTimer silence, deadline;
    silence.setSingleShot(true);
    deadline.setSingleShot(true);
    const auto giveUp = [raw, &timedOut](const QString& why) {
        if (!timedOut)
            timedOut = why;
        raw->abort();
    };
    connect(&silence, &QTimer::timeout, raw,
            [&giveUp] { giveUp(QStringLiteral("the server did not answer in time")); });
    connect(&deadline, &QTimer::timeout, raw,
            [&giveUp] { giveUp(QStringLiteral("the server took too long to answer")); });
    const auto stirred = [&silence] { silence.start(); };
    connect(raw, &QNetworkReply::downloadProgress, raw, stirred);
    connect(raw, &QNetworkReply::uploadProgress, raw, stirred);
    connect(raw, &QNetworkReply::metaDataChanged, raw, stirred);
    silence.start(int(request.transferTimeout.count()));
    deadline.start(int(request.deadline.count()));

    co_await qCoro(raw).waitForFinished();
    // A finished reply lingers until deleted; aborting it then would fail it twice.
    disconnect(cancel);
    silence.stop();
    deadline.stop();

    if (result.tooLarge)
        co_return result;
    if (timedOut) {
        result.failure = timedOut;
        co_return result;
    }
    const QVariant status = raw->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const QNetworkReply::NetworkError error = raw->error();
    // Errors below 200 are the connection's; 2xx codes mirror an HTTP status.
    if (error != QNetworkReply::NoError &&
        (error < QNetworkReply::ContentAccessDenied || !status.isValid())) {
        result.failure = raw->errorString();
        co_return result;
    }
    result.status = status.isValid() ? status.toInt() : 0;
    if (raw->hasRawHeader("Location"))
        result.location = raw->rawHeader("Location");
    if (raw->hasRawHeader("ETag"))
        result.etag = raw->rawHeader("ETag");
    result.lastModified = raw->header(QNetworkRequest::LastModifiedHeader).toDateTime();
    result.body = raw->readAll();
    co_return result;
}
