#include "BundleInfo.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

BundleInfo BundleInfo::fromFile(const QString& path)
{
    BundleInfo info;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return info;
    const QJsonObject o = QJsonDocument::fromJson(file.readAll()).object();
    info.identifier = o.value(QLatin1String("CFBundleIdentifier")).toString();
    info.name = o.value(QLatin1String("CFBundleName")).toString();
    info.version = o.value(QLatin1String("CFBundleShortVersionString")).toString();
    for (const QJsonValue& v : o.value(QLatin1String("CFBundleURLSchemes")).toArray())
        info.urlSchemes.append(v.toString());
    info.defaultServerURL = o.value(QLatin1String("TWDefaultServerURL")).toString();
    return info;
}

const BundleInfo& BundleInfo::current()
{
    static const BundleInfo info = fromFile(QStringLiteral(":/Info.json"));
    return info;
}
