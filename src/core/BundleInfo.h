#pragma once

#include <QString>
#include <QStringList>

// The application's bundle information (identifier, URL schemes, default server),
// read once from the Info.json compiled into the binary.
class BundleInfo
{
public:
    QString identifier;
    QString name;
    QString version;
    QStringList urlSchemes;
    // Empty when the file does not name one.
    QString defaultServerURL;

    static const BundleInfo& current();

    static BundleInfo fromFile(const QString& path);
};
