#include "LaunchAtLogin.h"

#include "BundleInfo.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>

// An XDG autostart entry: $XDG_CONFIG_HOME/autostart/<bundle identifier>.desktop.
namespace {
QString entryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/") + BundleInfo::current().identifier +
           QStringLiteral(".desktop");
}

QByteArray entryContent()
{
    // The running executable is the installed one (scripts/run or the package
    // installs it). At login the placed widgets are the app; the hub stays closed.
    QString exec = QCoreApplication::applicationFilePath();
    exec.replace(u'"', QStringLiteral("\\\""));
    const BundleInfo& info = BundleInfo::current();
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=" +
           info.name.toUtf8() + "\nExec=\"" + exec.toUtf8() +
           "\" --background\nIcon=" + info.identifier.toUtf8() +
           "\nX-GNOME-Autostart-enabled=true\nTerminal=false\n";
}
} // namespace

bool LaunchAtLogin::isSupported()
{
    return true;
}

// The entry exists and is not hidden.
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
    QSaveFile file(path);
    const QByteArray content = entryContent();
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() ||
        !file.commit()) {
        *error = file.errorString();
        return false;
    }
    return true;
}

bool LaunchAtLogin::refresh()
{
    QFile entry(entryPath());
    if (!entry.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> lines = entry.readAll().split('\n');
    entry.close();
    // Only the entry earlier versions wrote, word for word but for the binary's
    // path: one the user edited is theirs.
    const QList<QByteArray> ours = entryContent().split('\n');
    if (lines == ours || lines.size() != ours.size())
        return false;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QByteArray& line = lines[i];
        const bool bareExec = line.startsWith("Exec=\"") && line.endsWith('"') &&
                              line.count('"') == 2 && ours[i].startsWith("Exec=");
        if (line != ours[i] && !bareExec)
            return false;
    }
    QString error;
    return setEnabled(true, &error);
}
