#include "CallbackUrl.h"

#include <QUrlQuery>

CallbackUrl CallbackUrl::parse(const QUrl& url, const QString& scheme)
{
    CallbackUrl callback;
    // QUrl already lower-cases scheme and host, so this compares normalised forms.
    if (url.scheme().isEmpty() || url.scheme() != scheme || url.host() != u"auth")
        return callback;
    if (!url.isValid()) {
        callback.verdict = Verdict::Malformed;
        return callback;
    }
    const QUrlQuery query(url);
    callback.token = query.queryItemValue(QStringLiteral("token"), QUrl::FullyDecoded);
    callback.state = query.queryItemValue(QStringLiteral("state"), QUrl::FullyDecoded);
    callback.verdict = callback.token.isEmpty() ? Verdict::MissingToken : Verdict::Usable;
    return callback;
}
