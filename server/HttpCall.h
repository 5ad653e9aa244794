#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QUrlQuery>

#include <utility>

// One request as the handlers see it, whatever parsed it off the wire.
struct HttpCall
{
    QByteArray method; // upper case
    QString path;      // decoded, without the query
    QUrlQuery query;
    QList<std::pair<QByteArray, QByteArray>> headers; // names as sent
    QByteArray body;
    QHostAddress peer;   // the other end of the connection
    QHostAddress client; // who sent it: the peer, or whom a trusted proxy names
    bool secure = false; // arrived over TLS, or at a trusted proxy over HTTPS

    // The first header of that name (case-insensitive), or a null array.
    QByteArray header(QByteArrayView name) const
    {
        for (const auto& [key, value] : headers) {
            if (key.compare(name, Qt::CaseInsensitive) == 0)
                return value;
        }
        return {};
    }
};
