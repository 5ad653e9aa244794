#include "ModuleLoader.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QPluginLoader>

ModuleLoader::ModuleLoader()
    : ModuleLoader(QCoreApplication::applicationDirPath() +
                   QStringLiteral("/../" TIDEWELL_INSTALL_LIBDIR "/tidewell"))
{}

ModuleLoader::ModuleLoader(QString directory)
    : m_directory(std::move(directory))
{}

QObject* ModuleLoader::load(const QString& name, QString* why) const
{
    const QString file = m_directory + u'/' + name + QStringLiteral(".so");
    if (!QFileInfo::exists(file)) {
        *why = QStringLiteral("%1.so not found").arg(name);
        return nullptr;
    }
    QPluginLoader loader(file);
    if (QObject* root = loader.instance())
        return root;
    *why = loader.errorString();
    return nullptr;
}
