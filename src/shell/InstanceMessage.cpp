#include "InstanceMessage.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

QByteArray InstanceMessage::encode() const
{
    QJsonObject o;
    if (url.isEmpty()) {
        o.insert(QStringLiteral("command"), QStringLiteral("activate"));
    } else {
        o.insert(QStringLiteral("command"), QStringLiteral("open"));
        o.insert(QStringLiteral("url"), url);
    }
    if (!activation.isEmpty())
        o.insert(QStringLiteral("activation"), activation);
    return QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
}

bool InstanceMessage::parse(const QByteArray& data, InstanceMessage* message)
{
    if (data.size() > MaxBytes)
        return false;
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return false;
    QJsonObject o = doc.object();
    const QJsonValue activation = o.take(QLatin1String("activation"));
    if (!activation.isUndefined() && !activation.isString())
        return false;
    const QString command = o.value(QLatin1String("command")).toString();
    InstanceMessage parsed{{}, activation.toString()};
    if (command == u"activate" && o.size() == 1) {
        *message = parsed;
        return true;
    }
    if (command == u"open" && o.size() == 2 && o.value(QLatin1String("url")).isString()) {
        // Kept as text: a callback that does not parse must still reach sign-in,
        // which reports it as malformed.
        parsed.url = o.value(QLatin1String("url")).toString();
        if (QUrl(parsed.url, QUrl::StrictMode).scheme().size() < 2)
            return false;
        *message = parsed;
        return true;
    }
    return false;
}
