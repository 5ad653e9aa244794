#include "LaunchAtLogin.h"

#include "BundleInfo.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>

QString LaunchAtLogin::entryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/") + BundleInfo::current().identifier +
           QStringLiteral(".desktop");
}

bool LaunchAtLogin::isEnabled()
{
    QFile entry(entryPath());
    if (!entry.open(QIODevice::ReadOnly))
        return false;
    while (!entry.atEnd()) {
        // Desktop entries allow blanks around "=".
        const QByteArray line = entry.readLine();
        const qsizetype eq = line.indexOf('=');
        if (eq > 0 && line.left(eq).trimmed() == "Hidden" && line.mid(eq + 1).trimmed() == "true")
            return false;
    }
    return true;
}

bool LaunchAtLogin::setEnabled(bool on, QString* error)
{
    const QString path = entryPath();
    if (!on) {
        if (QFile::exists(path) && !QFile::remove(path)) {
            *error = QStringLiteral("cannot remove %1").arg(path);
            return false;
        }
        return true;
    }
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        *error = QStringLiteral("cannot create the folder of %1").arg(path);
        return false;
    }
    // The running executable is the installed one (scripts/run or the package
    // installs it). At login the placed widgets are the app; the hub stays closed.
    QString exec = QCoreApplication::applicationFilePath();
    exec.replace(u'"', QStringLiteral("\\\""));
    const QByteArray content = "[Desktop Entry]\n"
                               "Type=Application\n"
                               "Name=" +
                               BundleInfo::current().name.toUtf8() +
                               "\n"
                               "Exec=\"" +
                               exec.toUtf8() +
                               "\" --background\n"
                               "Icon=" +
                               BundleInfo::current().identifier.toUtf8() +
                               "\n"
                               "X-GNOME-Autostart-enabled=true\n"
                               "Terminal=false\n";
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() ||
        !file.commit()) {
        *error = file.errorString();
        return false;
    }
    return true;
}
