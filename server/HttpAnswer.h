#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <functional>
#include <utility>

// What to send back.
struct HttpAnswer
{
    int status = 200;
    QByteArray contentType;
    QByteArray body;
    QList<std::pair<QByteArray, QByteArray>> headers; // beyond type and length
    // Set when the answer comes later (a long poll): called, on the thread that
    // made it, with the way to answer, which it keeps; the fields above are unused.
    std::function<void(std::function<void(HttpAnswer)>)> later;

    static HttpAnswer json(int status, QByteArray body)
    {
        return {status, QByteArrayLiteral("application/json"), std::move(body), {}, {}};
    }
    // {"error": text}
    static HttpAnswer error(int status, const QString& text);
    // 503 with Retry-After: the database (or the server) cannot answer now.
    static HttpAnswer unavailable(const QString& text);
    void addHeader(const QByteArray& name, const QByteArray& value)
    {
        headers.append(std::pair<QByteArray, QByteArray>(name, value));
    }
};
