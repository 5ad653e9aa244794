#pragma once

#include "HttpCall.h"

#include <QByteArray>
#include <QString>

// How the sign-in pages treat a browser: their cookies (Secure and __Host- over
// HTTPS) and where a posted form may come from.
class BrowserPolicy
{
public:
    // `publicOrigin`: "https://sync.example.org" when the operator named the public
    // URL: the only origin forms are taken from, and with https every cookie is Secure.
    explicit BrowserPolicy(QString publicOrigin);

    // The value of the cookie called `base` (under the name it goes by on this call).
    QString cookie(const HttpCall& call, const QByteArray& base) const;
    // A Set-Cookie value; an empty value with no age deletes the cookie.
    QByteArray setCookie(const HttpCall& call, const QByteArray& base, const QString& value,
                         qint64 maxAgeS) const;
    // Whether a form was posted from a page of another origin.
    bool fromElsewhere(const HttpCall& call) const;

private:
    // Whether cookies go out Secure (and __Host-): over HTTPS, or to an https public URL.
    bool secureCookies(const HttpCall& call) const;
    QByteArray cookieName(const HttpCall& call, const QByteArray& base) const;

    QString m_publicOrigin;
};
