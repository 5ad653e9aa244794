#pragma once

#include "HttpCall.h"

#include <QByteArray>

#include <optional>

// Takes HTTP/1.1 requests off the bytes a connection received, strictly: a
// request line of three parts, header lines ended by CRLF with token names and
// no control characters in their values, one Content-Length and no transfer
// coding. Whatever a lenient parser and a proxy in front of it might read two
// ways (smuggling) is refused instead. Sizes are checked before a body is kept.
class HttpRequestParser
{
public:
    struct Limits
    {
        qint64 maxHeaderBytes = 32 * 1024;
        qint64 maxBodyBytes = 1024 * 1024;
    };
    enum class Step { NeedMore, Request, Refuse };

    explicit HttpRequestParser(Limits limits)
        : m_limits(limits)
    {}

    // Takes the next request off the front of `buffer` when it is all there.
    Step next(QByteArray& buffer);
    // After Request: the request (peer, client and secure are the caller's to set).
    HttpCall takeCall() { return std::move(m_call); }
    bool keepAlive() const { return m_keepAlive; }
    // Headers are in, the body is not, and the client waits for "100 Continue".
    bool awaitsContinue() const { return m_headDone && m_expectContinue; }
    // Whether part of a request has been taken in.
    bool midRequest() const { return m_headDone; }
    // After Refuse: the status to answer and why, before the connection closes.
    int refusalStatus() const { return m_refusalStatus; }
    QString refusalReason() const { return m_refusalReason; }

private:
    Step refuse(int status, const QString& reason);
    // Which headers that may appear once have been seen.
    struct Seen
    {
        bool length = false;
        bool host = false;
    };

    bool parseHead(QByteArrayView head);
    // The request's method, path and query; its HTTP version, or nothing when refused.
    std::optional<QByteArrayView> parseRequestLine(QByteArrayView line);
    bool parseHeader(QByteArrayView line, Seen& seen);
    // Refuses with 400 Bad Request: false, or nothing.
    bool bad(const QString& why);
    std::nullopt_t refusal(const QString& why);

    Limits m_limits;
    HttpCall m_call;
    qsizetype m_scanFrom = 0;
    bool m_headDone = false;
    qint64 m_contentLength = 0;
    bool m_keepAlive = true;
    bool m_expectContinue = false;
    int m_refusalStatus = 0;
    QString m_refusalReason;
};
