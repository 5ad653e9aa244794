#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <utility>

// What to send back.
struct HttpAnswer
{
    int status = 200;
    QByteArray contentType;
    QByteArray body;
    QList<std::pair<QByteArray, QByteArray>> headers; // beyond type and length

    static HttpAnswer json(int status, QByteArray body)
    {
        return {status, QByteArrayLiteral("application/json"), std::move(body), {}};
    }
    // {"error": text}
    static HttpAnswer error(int status, const QString& text);
};
