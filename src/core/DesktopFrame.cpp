#include "DesktopFrame.h"

#include <QJsonDocument>
#include <QJsonObject>

QString DesktopFrame::encode(const QRectF& frame)
{
    const QJsonObject o{{QStringLiteral("x"), frame.x()},
                        {QStringLiteral("y"), frame.y()},
                        {QStringLiteral("w"), frame.width()},
                        {QStringLiteral("h"), frame.height()}};
    return QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact));
}

std::optional<QRectF> DesktopFrame::decode(const QString& text)
{
    if (text.isEmpty())
        return std::nullopt;
    const QJsonDocument doc = QJsonDocument::fromJson(text.toUtf8());
    if (!doc.isObject())
        return std::nullopt;
    const QJsonObject o = doc.object();
    for (auto it = o.begin(); it != o.end(); ++it) {
        if (!it.value().isDouble())
            return std::nullopt;
    }
    for (const char* key : {"x", "y", "w", "h"}) {
        if (!o.contains(QLatin1String(key)))
            return std::nullopt;
    }
    return QRectF(o.value(QLatin1String("x")).toDouble(), o.value(QLatin1String("y")).toDouble(),
                  o.value(QLatin1String("w")).toDouble(), o.value(QLatin1String("h")).toDouble());
}
