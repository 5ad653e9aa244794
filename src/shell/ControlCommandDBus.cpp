#include "ControlCommand.h"

#include "DesktopBus.h"
#include "HabitsBusAdaptor.h"
#include "StatusLine.h"
#include "TasksBusAdaptor.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>

namespace {
constexpr int CallTimeoutMs = 5000;
// An import of years of history takes a while; a hung Tidewell still ends the wait.
constexpr int DataCallTimeoutMs = 300'000;

QDBusMessage call(const QString& interface, const QString& method, const QVariantList& args = {})
{
    QDBusMessage message = QDBusMessage::createMethodCall(
        DesktopBus::Service, DesktopBus::ObjectPath, interface, method);
    message.setArguments(args);
    // Never start Tidewell through D-Bus activation: the command only talks to one.
    message.setAutoStartService(false);
    return QDBusConnection::sessionBus().call(message, QDBus::Block, CallTimeoutMs);
}

bool running()
{
    const QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
    return bus && bus->isServiceRegistered(DesktopBus::Service).value();
}

// Prints the error of a failed call; the exit status for it.
int failed(const QDBusMessage& reply, QTextStream& err)
{
    const QString name = reply.errorName();
    if (name == u"org.freedesktop.DBus.Error.ServiceUnknown" ||
        name == u"org.freedesktop.DBus.Error.NameHasNoOwner") {
        err << "tidewell: Tidewell is not running\n";
        return ControlCommand::NotRunning;
    }
    err << "tidewell: " << reply.errorMessage() << '\n';
    return name.startsWith(DesktopBus::ErrorPrefix) ? ControlCommand::Refused
                                                    : ControlCommand::NotRunning;
}

int usage(QTextStream& err, const QString& what)
{
    err << "tidewell: " << what << "\nTry 'tidewell --help'.\n";
    return ControlCommand::Usage;
}

QVariantMap timerProperties(QDBusMessage* reply)
{
    *reply = call(QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"),
                  {DesktopBus::TimerInterface});
    if (reply->type() != QDBusMessage::ReplyMessage || reply->arguments().isEmpty())
        return {};
    return qdbus_cast<QVariantMap>(reply->arguments().first());
}

// Prints the status line now and, with `follow`, again whenever it changes.
class StatusFollower final : public QObject
{
    Q_OBJECT

public:
    StatusFollower(std::function<QString(const StatusLine&)> render, QTextStream& out)
        : m_render(std::move(render))
        , m_out(out)
    {}

    void show(const QVariantMap& properties)
    {
        m_status.update(properties);
        const QString line = m_render(m_status);
        if (line == m_last)
            return;
        m_last = line;
        m_out << line << '\n';
        m_out.flush();
    }

public slots:
    void propertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList&)
    {
        if (interface == DesktopBus::TimerInterface)
            show(changed);
    }

private:
    std::function<QString(const StatusLine&)> m_render;
    QTextStream& m_out;
    StatusLine m_status;
    QString m_last;
};

int status(QStringList args, QTextStream& out, QTextStream& err)
{
    bool json = false, follow = false;
    QString format = StatusLine::DefaultTemplate;
    while (!args.isEmpty()) {
        const QString arg = args.takeFirst();
        if (arg == u"--json")
            json = true;
        else if (arg == u"--follow")
            follow = true;
        else if (arg == u"--format" && !args.isEmpty())
            format = args.takeFirst();
        else if (arg.startsWith(u"--format="))
            format = arg.mid(9);
        else
            return usage(err, u"status: unknown option '" + arg + u"'");
    }
    std::function<QString(const StatusLine&)> render;
    if (json)
        render = [](const StatusLine& s) { return s.json(); };
    else if (format == u"waybar")
        render = [](const StatusLine& s) { return s.waybar(); };
    else
        render = [format](const StatusLine& s) { return s.formatted(format); };

    StatusFollower follower(render, out);
    QDBusConnection bus = QDBusConnection::sessionBus();
    // Subscribed before the first read, so no change falls between the two.
    if (follow)
        bus.connect(DesktopBus::Service, DesktopBus::ObjectPath,
                    QStringLiteral("org.freedesktop.DBus.Properties"),
                    QStringLiteral("PropertiesChanged"), &follower,
                    SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
    QDBusMessage reply;
    const QVariantMap properties = timerProperties(&reply);
    if (reply.type() != QDBusMessage::ReplyMessage)
        return failed(reply, err);
    follower.show(properties);
    if (!follow)
        return ControlCommand::Ok;

    int exitCode = ControlCommand::Ok;
    QDBusServiceWatcher watcher(DesktopBus::Service, bus,
                                QDBusServiceWatcher::WatchForUnregistration);
    QObject::connect(&watcher, &QDBusServiceWatcher::serviceUnregistered, [&err, &exitCode] {
        err << "tidewell: Tidewell quit\n";
        err.flush();
        exitCode = ControlCommand::NotRunning;
        QCoreApplication::exit(ControlCommand::NotRunning);
    });
    QCoreApplication::exec();
    return exitCode;
}

int ctl(QStringList args, QTextStream& out, QTextStream& err)
{
    if (args.isEmpty())
        return usage(err, QStringLiteral(
                              "ctl: say what to do (toggle, start, pause, skip, reset or status)"));
    const QString action = args.takeFirst();
    if (action == u"status")
        return status(args, out, err);
    static const QHash<QString, QString> methods{
        {QStringLiteral("toggle"), QStringLiteral("Toggle")},
        {QStringLiteral("start"), QStringLiteral("Start")},
        {QStringLiteral("pause"), QStringLiteral("Pause")},
        {QStringLiteral("skip"), QStringLiteral("Skip")},
        {QStringLiteral("reset"), QStringLiteral("Reset")}};
    if (!methods.contains(action))
        return usage(err, u"ctl: unknown action '" + action + u"'");
    if (!args.isEmpty())
        return usage(err, u"ctl " + action + u": takes no arguments");
    const QDBusMessage reply = call(DesktopBus::TimerInterface, methods.value(action));
    return reply.type() == QDBusMessage::ReplyMessage ? ControlCommand::Ok : failed(reply, err);
}

int habit(QStringList args, QTextStream& out, QTextStream& err)
{
    HabitsBusAdaptor::registerTypes();
    const QString action = args.isEmpty() ? QString() : args.takeFirst();
    if (action == u"list" && args.isEmpty()) {
        const QDBusMessage reply = call(DesktopBus::HabitsInterface, QStringLiteral("List"));
        if (reply.type() != QDBusMessage::ReplyMessage)
            return failed(reply, err);
        for (const HabitEntry& h : qdbus_cast<QList<HabitEntry>>(reply.arguments().value(0)))
            out << h.name << '\t' << h.value << '/' << h.target << '\n';
        return ControlCommand::Ok;
    }
    if ((action == u"count" || action == u"reset") && args.size() == 1) {
        const QString name = args.first();
        const QDBusMessage reply =
            call(DesktopBus::HabitsInterface,
                 action == u"count" ? QStringLiteral("Count") : QStringLiteral("Reset"), {name});
        if (reply.type() != QDBusMessage::ReplyMessage)
            return failed(reply, err);
        if (action == u"count")
            out << name << '\t' << reply.arguments().value(0).toInt() << '\n';
        return ControlCommand::Ok;
    }
    return usage(
        err, QStringLiteral("habit: use 'habit list', 'habit count NAME' or 'habit reset NAME'"));
}

int task(QStringList args, QTextStream& out, QTextStream& err)
{
    TasksBusAdaptor::registerTypes();
    const QString action = args.isEmpty() ? QString() : args.takeFirst();
    QString list;
    if (args.size() >= 2 && args.first() == u"--list") {
        args.removeFirst();
        list = args.takeFirst();
    }
    if (action == u"add" && args.size() == 1) {
        const QDBusMessage reply =
            call(DesktopBus::TasksInterface, QStringLiteral("Add"), {list, args.first()});
        return reply.type() == QDBusMessage::ReplyMessage ? ControlCommand::Ok : failed(reply, err);
    }
    if (action == u"list" && args.isEmpty()) {
        const QDBusMessage reply =
            call(DesktopBus::TasksInterface, QStringLiteral("Tasks"), {list});
        if (reply.type() != QDBusMessage::ReplyMessage)
            return failed(reply, err);
        int number = 0;
        for (const TaskEntry& t : qdbus_cast<QList<TaskEntry>>(reply.arguments().value(0))) {
            out << ++number << (t.checked ? " [x] " : " [ ] ") << t.text
                << (t.focus ? "  (focus)" : "") << '\n';
        }
        return ControlCommand::Ok;
    }
    if (action == u"lists" && args.isEmpty() && list.isEmpty()) {
        const QDBusMessage reply = call(DesktopBus::TasksInterface, QStringLiteral("Lists"));
        if (reply.type() != QDBusMessage::ReplyMessage)
            return failed(reply, err);
        for (const QString& name : reply.arguments().value(0).toStringList())
            out << name << '\n';
        return ControlCommand::Ok;
    }
    return usage(
        err,
        QStringLiteral(
            "task: use 'task add [--list NAME] TEXT', 'task list [--list NAME]' or 'task lists'"));
}
} // namespace

int ControlCommand::run(const QStringList& args, QTextStream& out, QTextStream& err)
{
    QStringList rest = args;
    const QString command = rest.takeFirst();
    if (!QDBusConnection::sessionBus().isConnected()) {
        err << "tidewell: no session bus, so no Tidewell to talk to\n";
        return NotRunning;
    }
    if (!running()) {
        err << "tidewell: Tidewell is not running\n";
        return NotRunning;
    }
    if (command == u"ctl")
        return ctl(rest, out, err);
    if (command == u"habit")
        return habit(rest, out, err);
    return task(rest, out, err);
}

std::optional<int> ControlCommand::handOff(const DataCommand::Request& request, QTextStream& out,
                                           QTextStream& err)
{
    if (!QDBusConnection::sessionBus().isConnected() || !running())
        return std::nullopt;
    QDBusMessage call = QDBusMessage::createMethodCall(
        DesktopBus::Service, DesktopBus::ObjectPath, DesktopBus::DataInterface,
        request.isRestore  ? QStringLiteral("RestoreBackup")
        : request.isImport ? QStringLiteral("Import")
                           : QStringLiteral("Export"));
    if (request.isRestore)
        call << request.file;
    else if (request.isImport)
        call << request.file
             << (request.mode == ExportDocument::Mode::Replace ? QStringLiteral("replace")
                                                               : QStringLiteral("merge"));
    else
        call << request.file << request.csvDirectory;
    call.setAutoStartService(false);
    const QDBusMessage reply =
        QDBusConnection::sessionBus().call(call, QDBus::Block, DataCallTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        err << "tidewell: " << reply.errorMessage() << '\n';
        return reply.errorName().startsWith(DesktopBus::ErrorPrefix) ? DataCommand::Refused
                                                                     : DataCommand::Failed;
    }
    DataCommand::report(
        request, request.isImport ? reply.arguments().value(0).toStringList() : QStringList(), out);
    return DataCommand::Ok;
}

#include "ControlCommandDBus.moc"
