#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QPointer>
#include <QString>
#include <QUrl>
#include <QtPlugin>

#include <QCoro/QCoroTask>

#include <chrono>
#include <optional>
#include <utility>

// One request as the API client builds it; redirects are the client's business.
struct HttpRequest
{
    using Headers = QList<std::pair<QByteArray, QByteArray>>;

    QByteArray method; // "GET" or "PUT"
    QUrl url;
    Headers headers;
    QByteArray body;                                   // null: none
    std::chrono::milliseconds transferTimeout{60'000}; // longest silence
    std::chrono::milliseconds deadline{120'000};       // longest the whole exchange may take
    qint64 maxReplySize = 0;                           // larger replies are cut off
};

// What came back: either a failure of the transfer itself, or an HTTP status.
struct HttpReply
{
    std::optional<QString> failure;     // refused, timed out, aborted, ...: the reason, readable
    bool tooLarge = false;              // cut off at maxReplySize
    int status = 0;                     // 0: the reply carried no HTTP status
    std::optional<QByteArray> location; // the Location header, when there is one
    std::optional<QByteArray> etag;     // the ETag header, when there is one
    QDateTime lastModified;             // the Last-Modified header; invalid without one
    QByteArray body;
};

// Sends HTTP requests. The implementation lives in a module loaded on the first
// request, so that the network stack costs nothing until the user syncs.
class HttpTransport
{
public:
    virtual ~HttpTransport() = default;
    // When `scope` was given and is destroyed before the reply, the request is
    // aborted (a failure).
    virtual QCoro::Task<HttpReply> send(HttpRequest request, QPointer<QObject> scope) = 0;
};

#define HttpTransport_iid "com.brenlow.tidewell.HttpTransport/1"
Q_DECLARE_INTERFACE(HttpTransport, HttpTransport_iid)
