#include "AppController.h"
#include "BundleInfo.h"
#include "DataStore.h"
#include "ShellStyle.h"
#include "SingleInstance.h"

#include <QApplication>
#include <QDir>
#include <QIcon>
#include <QImageReader>
#include <QPixmap>
#include <QUrl>

#include <cstdio>

namespace {
// The first argument that names a URL (the desktop passes callbacks as %u).
QUrl urlArgument(int argc, char* argv[])
{
    for (int i = 1; i < argc; ++i) {
        const QUrl url(QString::fromLocal8Bit(argv[i]), QUrl::StrictMode);
        if (url.isValid() && !url.scheme().isEmpty() && url.scheme().size() > 1)
            return url;
    }
    return {};
}

// The PNGs under :/icons, read as PNG outright: left to guess, Qt would first load
// every image format plugin to ask whether it reads PNG.
QIcon windowIcon()
{
    QIcon icon;
    for (const QFileInfo& file : QDir(QStringLiteral(":/icons")).entryInfoList(QDir::Files)) {
        QImageReader reader(file.filePath(), "png");
        reader.setAutoDetectImageFormat(false);
        icon.addPixmap(QPixmap::fromImage(reader.read()));
    }
    return icon;
}

bool hasDisplay()
{
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    if (!platform.isEmpty() && !platform.startsWith("xcb") && !platform.startsWith("wayland"))
        return true; // offscreen, vnc, ...: the platform plugin decides
    return !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}
} // namespace

int main(int argc, char* argv[])
{
    const QUrl url = urlArgument(argc, argv);
    const QString socketPath = SingleInstance::defaultSocketPath();
    // A running Tidewell takes the request (show the hub, or a sign-in callback).
    if (SingleInstance::sendToRunning(socketPath, url, 2000))
        return 0;

    if (!hasDisplay()) {
        std::fprintf(stderr, "tidewell: no graphical display (DISPLAY and WAYLAND_DISPLAY are "
                             "unset); start it from a desktop session\n");
        return 2;
    }
    // Wayland lets no client place or raise its own windows; panels and the tray
    // popup need that, so prefer XWayland unless the user chose otherwise.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && !qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "xcb");

    // Checking a large store takes a while; let it overlap Qt's own start.
    QString noDataFolder;
    if (const QString store = DataStore::defaultPath(&noDataFolder); !store.isEmpty())
        DataStore::inspectInBackground(store);

    QApplication app(argc, argv);
    const BundleInfo& info = BundleInfo::current();
    QApplication::setApplicationName(info.name);
    QApplication::setOrganizationName(info.identifier);
    QApplication::setApplicationVersion(info.version);
    QApplication::setDesktopFileName(info.identifier);
    QApplication::setStyle(new ShellStyle);
    QApplication::setWindowIcon(windowIcon());

    SingleInstance instance(socketPath);
    QString error;
    if (!instance.listen(&error)) {
        // Another instance started in the meantime: hand over and leave.
        if (SingleInstance::sendToRunning(socketPath, url, 2000))
            return 0;
        std::fprintf(stderr, "tidewell: cannot listen on %s: %s\n", qPrintable(socketPath),
                     qPrintable(error));
    }

    DataStore::shared(); // a store that cannot be opened ends start-up here
    AppController controller;
    controller.attach(&instance);
    controller.start();
    if (!url.isEmpty())
        controller.openUrl(url);
    return app.exec();
}
