#pragma once

#include <QString>
#include <QUrl>

// A sign-in callback on the app's URL scheme, <scheme>://auth?token=...&state=...,
// taken apart without acting on it.
struct CallbackUrl
{
    enum class Verdict {
        NotOurs,      // another scheme or another host: ignored
        Malformed,    // ours, but QUrl could not make sense of it
        MissingToken, // ours, without a token
        Usable,
    };

    Verdict verdict = Verdict::NotOurs;
    QString token;
    QString state;

    static CallbackUrl parse(const QUrl& url, const QString& scheme);
};
