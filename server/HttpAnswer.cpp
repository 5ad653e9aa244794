#include "HttpAnswer.h"

#include <QJsonDocument>
#include <QJsonObject>

HttpAnswer HttpAnswer::error(int status, const QString& text)
{
    return json(
        status,
        QJsonDocument(QJsonObject{{QStringLiteral("error"), text}}).toJson(QJsonDocument::Compact));
}

HttpAnswer HttpAnswer::unavailable(const QString& text)
{
    HttpAnswer answer = error(503, text);
    answer.addHeader("Retry-After", "5");
    return answer;
}
