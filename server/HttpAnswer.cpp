#include "HttpAnswer.h"

#include <QJsonDocument>
#include <QJsonObject>

HttpAnswer HttpAnswer::error(int status, const QString& text)
{
    return json(
        status,
        QJsonDocument(QJsonObject{{QStringLiteral("error"), text}}).toJson(QJsonDocument::Compact));
}
