#include "AppController.h"
#include "AppServices.h"
#include "BundleInfo.h"
#include "ControlCommand.h"
#include "ControlSurface.h"
#include "DataCommand.h"
#include "DataStore.h"
#include "Preferences.h"
#include "ProcessMemory.h"
#include "RestoreDialog.h"
#include "ShellStyle.h"
#include "SingleInstance.h"
#include "StoreBackups.h"
#include "StoreLock.h"
#include "StoreProbe.h"
#include "StoreRestore.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDesktopServices>
#include <QDir>
#include <QIcon>
#include <QImageReader>
#include <QLocale>
#include <QMessageBox>
#include <QPixmap>
#include <QPushButton>
#include <QTextStream>
#include <QThread>
#include <QTimer>
#include <QUrl>

#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace {
// Drops argv[i], keeping argc and the terminating null right.
void removeArgument(int& argc, char* argv[], int i)
{
    for (int j = i; j < argc - 1; ++j)
        argv[j] = argv[j + 1];
    argv[--argc] = nullptr;
}

// The first argument that names a URL (the desktop passes callbacks as %u), taken
// out of the argument list: a sign-in callback carries a token, and the argument
// list is readable by every process of the machine for as long as this one runs.
// Kept as text even when it does not parse, so that sign-in can say so.
QString takeUrlArgument(int& argc, char* argv[])
{
    for (int i = 1; i < argc; ++i) {
        const QString text = QString::fromLocal8Bit(argv[i]);
        if (text.startsWith(u'-') || QUrl(text, QUrl::StrictMode).scheme().size() < 2)
            continue;
        std::memset(argv[i], 0, std::strlen(argv[i]));
        removeArgument(argc, argv, i);
        return text;
    }
    return {};
}

// Whether `flag` is among the arguments; it is taken out, as Qt does not know it.
bool takeFlag(int& argc, char* argv[], const char* flag)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], flag) != 0)
            continue;
        removeArgument(argc, argv, i);
        return true;
    }
    return false;
}

// The token the desktop gave this launch, to pass on with a hand-off.
QString activationToken()
{
    const QString wayland = qEnvironmentVariable("XDG_ACTIVATION_TOKEN");
    return wayland.isEmpty() ? qEnvironmentVariable("DESKTOP_STARTUP_ID") : wayland;
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

void say(const QString& line)
{
    std::fprintf(stderr, "tidewell: %s\n", line.toLocal8Bit().constData());
}

// Hands the request to a running Tidewell. The process's exit status when this
// launch is done (delivered, or refused), or nothing when no Tidewell answered.
std::optional<int> handOff(const QString& socketPath, const SingleInstance::Request& request)
{
    QString reason;
    switch (SingleInstance::sendToRunning(socketPath, request, 2000, &reason)) {
    case SingleInstance::Outcome::Delivered:
        return 0;
    case SingleInstance::Outcome::Refused:
        say(u"the running Tidewell did not take the request: " + reason);
        return 2;
    case SingleInstance::Outcome::NoAnswer:
        break;
    }
    return std::nullopt;
}

// Puts the store file `from` in the store's place and starts Tidewell again on it,
// in this process; returns only when that fails.
int restoreAndRestart(const QString& storePath, const QString& from, bool damaged,
                      std::unique_ptr<StoreLock>& lock)
{
    QString aside, error;
    if (!StoreRestore::replace(storePath, from, damaged, QDateTime::currentDateTime(), &aside,
                               &error)) {
        say(u"the backup was not restored: " + error);
        return 1;
    }
    const StoreBackups::Entry entry = StoreBackups::describe(from);
    StoreRestore::leaveNote(storePath, {entry.day.isValid()
                                            ? QLocale().toString(entry.day, QLocale::LongFormat)
                                            : QFileInfo(from).fileName(),
                                        aside});
    const QByteArray program = QFile::encodeName(QCoreApplication::applicationFilePath());
    lock.reset(); // the next image takes the lock afresh
    char* const args[] = {const_cast<char*>(program.constData()), nullptr};
    ::execv(program.constData(), args);
    say(QStringLiteral("restored; start Tidewell again"));
    return 1;
}

// The store cannot be used: with backups to go back to, the user may choose one.
// The path of the one chosen, or empty.
QString offerBackups(const QString& storePath, const QString& reason)
{
    const QList<StoreBackups::Entry> backups =
        StoreBackups(StoreBackups::folderFor(storePath)).list();
    if (backups.isEmpty())
        return {};
    QMessageBox box(QMessageBox::Critical, QStringLiteral("Tidewell"),
                    QStringLiteral("Tidewell cannot open its store"));
    box.setObjectName(QStringLiteral("storeRefused"));
    box.setInformativeText(storePath + u": " + reason +
                           QStringLiteral("\n\nYou can go back to one of its daily backups; the "
                                          "store as it is now is kept beside it."));
    QPushButton* restore =
        box.addButton(QStringLiteral("Restore from backup…"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Quit"), QMessageBox::RejectRole);
    box.exec();
    if (box.clickedButton() != restore)
        return {};
    RestoreDialog dialog(backups);
    return dialog.exec() == QDialog::Accepted ? dialog.chosenPath() : QString();
}
} // namespace

// `tidewell --help`, `--version` and the commands that drive a running Tidewell;
// the exit status, or nothing when this launch is the app itself.
std::optional<int> runCommand(int argc, char* argv[])
{
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args.append(QString::fromLocal8Bit(argv[i]));
    const QString first = args.value(0);
    if (first == u"-h" || first == u"--help") {
        QTextStream(stdout) << ControlCommand::help();
        return 0;
    }
    if (first == u"-v" || first == u"--version") {
        QTextStream(stdout) << "tidewell " << BundleInfo::current().version << '\n';
        return 0;
    }
    const bool data = DataCommand::handles(args);
    if (!data && !ControlCommand::handles(args))
        return std::nullopt;
    QCoreApplication app(argc, argv);
    QTextStream out(stdout), err(stderr);
    const int status = data ? DataCommand::run(args, out, err, &ControlCommand::handOff)
                            : ControlCommand::run(args, out, err);
    out.flush();
    err.flush();
    return status;
}

namespace {
// Two processes must never write one store. `lock` holds it on return; otherwise
// the exit status: a running instance took the request, or does not answer.
std::optional<int> claimStore(const QString& storePath, const QString& socketPath,
                              const SingleInstance::Request& request, bool quiet,
                              std::unique_ptr<StoreLock>& lock)
{
    bool held = false;
    QString problem;
    lock = StoreLock::acquire(storePath, &held, &problem);
    if (held && quiet)
        return 0;
    // One that holds the lock but does not answer may be starting up: ask it a
    // little longer.
    for (QDeadlineTimer patience(3000); held && !patience.hasExpired();) {
        if (const auto status = handOff(socketPath, request))
            return *status;
        QThread::msleep(200);
        lock = StoreLock::acquire(storePath, &held, &problem);
    }
    // A lock file that cannot be made (a read-only folder) is left to the store's
    // own checks, which say what is wrong.
    if (held) {
        say(u"another Tidewell is running but does not answer (" + problem +
            u"); not starting a second one");
        return 1;
    }
    return std::nullopt;
}

void setPlatformDefaults()
{
    // Wayland lets no client place or raise its own windows; panels and the tray
    // popup need that, so prefer XWayland unless the user chose otherwise.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && !qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    // The windows' class names the desktop entry (com.brenlow.tidewell.desktop), so
    // docks and task switchers show them under the app's name and icon.
    if (qEnvironmentVariableIsEmpty("RESOURCE_NAME"))
        qputenv("RESOURCE_NAME", "com.brenlow.tidewell");
    // On X11 every repaint through shared memory comes back as a completion event
    // that wakes two threads; the running countdown repaints its windows each
    // second. Tidewell's windows are small enough that plain image transfer costs
    // nothing noticeable.
    if (qEnvironmentVariableIsEmpty("QT_XCB_NO_MITSHM"))
        qputenv("QT_XCB_NO_MITSHM", "1");
}

void describeApplication()
{
    const BundleInfo& info = BundleInfo::current();
    QApplication::setApplicationName(info.name);
    QApplication::setOrganizationName(info.identifier);
    QApplication::setApplicationVersion(info.version);
    QApplication::setDesktopFileName(info.identifier);
    QApplication::setStyle(new ShellStyle);
    QApplication::setWindowIcon(windowIcon());
}

// A store that cannot be opened: said on the terminal, and a damaged one may be
// replaced by a daily backup the user picks.
int refuseStore(const QString& storePath, const QString& error, std::unique_ptr<StoreLock>& lock)
{
    const QString line = u"Failed to initialise SwiftData store at " + storePath + u": " + error;
    std::fprintf(stderr, "%s\n", line.toLocal8Bit().constData());
    if (!StoreProbe::examine(storePath).restorable)
        return 1;
    say(QStringLiteral("to go back to a daily backup: tidewell restore-backup --list"));
    const QString chosen = offerBackups(storePath, error);
    return chosen.isEmpty() ? 1 : restoreAndRestart(storePath, chosen, true, lock);
}

// The app itself, until it quits: its exit status, and the backup to restore
// (chosen in the hub) once the store is closed.
int runApp(QApplication& app, std::unique_ptr<DataStore> store, SingleInstance& instance,
           const SingleInstance::Request& request, bool background, QString* restoreFrom,
           bool* damaged)
{
    AppServices services({.store = std::move(store), .browser = [](const QUrl& url) {
                              return QDesktopServices::openUrl(url);
                          }});
    AppController controller(services);
    controller.attach(&instance);
    controller.start(background ? AppController::Launch::Background
                                : AppController::Launch::Normal);
    if (!request.url.isEmpty())
        controller.openUrl(QUrl(request.url, QUrl::StrictMode));
    // Shortcuts, status bars and `tidewell ctl` reach the app here, once the first
    // windows are up.
    QTimer::singleShot(0, &controller, [&services, &controller] {
        ControlSurface::publish(services, &controller, [&controller] { controller.showHistory(); });
    });
    const int status = app.exec();
    *restoreFrom = controller.pendingRestore();
    *damaged = !services.store().mainContext().damage().isEmpty();
    return status;
}
} // namespace

int main(int argc, char* argv[])
{
    ProcessMemory::keepSmall();
    // For autostart entries: start without the hub when widgets are placed.
    const bool background = takeFlag(argc, argv, "--background");
    if (const auto status = runCommand(argc, argv))
        return *status;
    const SingleInstance::Request request{takeUrlArgument(argc, argv), activationToken()};
    const QString socketPath = SingleInstance::defaultSocketPath();
    // A running Tidewell takes the request (show the hub, or a sign-in callback). A
    // background start has nothing to ask of one: it is already there.
    const bool quiet = background && request.url.isEmpty();
    if (!quiet) {
        if (const auto status = handOff(socketPath, request))
            return *status;
    }

    if (!hasDisplay()) {
        say(QStringLiteral("no graphical display (DISPLAY and WAYLAND_DISPLAY are unset); start "
                           "it from a desktop session"));
        return 2;
    }

    QString error;
    const QString storePath = DataStore::defaultPath(&error);
    if (storePath.isEmpty()) {
        say(error);
        return 1;
    }
    // Whatever became of the socket, two processes must never write one store.
    std::unique_ptr<StoreLock> lock;
    if (const auto status = claimStore(storePath, socketPath, request, quiet, lock))
        return *status;
    // Checking a large store takes a while; let it overlap Qt's own start.
    DataStore::probeInBackground(storePath);

    setPlatformDefaults();
    QApplication app(argc, argv);
    describeApplication();

    SingleInstance instance(socketPath);
    if (!instance.listen(&error)) {
        // Another instance started in the meantime: hand over and leave.
        if (const auto status = handOff(socketPath, request))
            return *status;
        say(u"cannot listen on " + socketPath + u": " + error);
    }

    std::unique_ptr<DataStore> store = DataStore::open(storePath, &error);
    if (!store)
        return refuseStore(storePath, error, lock);
    // A first start knows nobody signed in here yet: nothing will ask the keyring
    // until someone does.
    if (store->isNew() && !Preferences::accountExists())
        Preferences::setAccountExists(false);
    QString restoreFrom;
    bool damaged = false;
    const int status =
        runApp(app, std::move(store), instance, request, background, &restoreFrom, &damaged);
    // The store is closed now, and the lock still held: nobody else opens it
    // while the backup takes its place.
    return restoreFrom.isEmpty() ? status
                                 : restoreAndRestart(storePath, restoreFrom, damaged, lock);
}
