#include "ModuleLoader.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QPluginLoader>

namespace {
QString& searchDirectory()
{
    static QString dir;
    return dir;
}
} // namespace

void ModuleLoader::setSearchDirectory(const QString& dir)
{
    searchDirectory() = dir;
}

QObject* ModuleLoader::load(const QString& name, QString* why)
{
    const QStringList dirs{searchDirectory(),
                           QCoreApplication::applicationDirPath() +
                               QStringLiteral("/../" TIDEWELL_INSTALL_LIBDIR "/tidewell")};
    *why = QStringLiteral("%1.so not found").arg(name);
    for (const QString& dir : dirs) {
        const QString file = dir + u'/' + name + QStringLiteral(".so");
        if (dir.isEmpty() || !QFileInfo::exists(file))
            continue;
        QPluginLoader loader(file);
        if (QObject* root = loader.instance())
            return root;
        *why = loader.errorString();
    }
    return nullptr;
}
