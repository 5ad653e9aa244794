#include "DataCommand.h"

#include "Clock.h"
#include "DataStore.h"
#include "DataTransfer.h"
#include "DesktopBus.h"
#include "StoreLock.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFileInfo>

namespace {
// An import of years of history takes a while; a hung Tidewell still ends the wait.
constexpr int CallTimeoutMs = 300'000;

struct Request
{
    bool isImport = false;
    ExportDocument::Mode mode = ExportDocument::Mode::Replace;
    QString file;
    QString csvDirectory;
};

std::optional<Request> parse(QStringList args, QString* problem)
{
    Request request;
    request.isImport = args.takeFirst() == u"import";
    bool modeGiven = false;
    while (!args.isEmpty()) {
        const QString arg = args.takeFirst();
        if (request.isImport && (arg == u"--replace" || arg == u"--merge")) {
            if (modeGiven) {
                *problem = QStringLiteral("import: give one of --replace and --merge");
                return std::nullopt;
            }
            modeGiven = true;
            request.mode =
                arg == u"--replace" ? ExportDocument::Mode::Replace : ExportDocument::Mode::Merge;
        } else if (!request.isImport && arg == u"--csv" && !args.isEmpty()) {
            request.csvDirectory = QFileInfo(args.takeFirst()).absoluteFilePath();
        } else if (arg.startsWith(u'-') || !request.file.isEmpty()) {
            *problem = (request.isImport ? u"import" : u"export") +
                       QStringLiteral(": unexpected '") + arg + u'\'';
            return std::nullopt;
        } else {
            request.file = QFileInfo(arg).absoluteFilePath();
        }
    }
    if (request.file.isEmpty())
        *problem = request.isImport ? QStringLiteral("import: name the file to import")
                                    : QStringLiteral("export: name the file to write");
    else if (request.isImport && !modeGiven)
        *problem = QStringLiteral("import: say --replace (the store becomes the file) or "
                                  "--merge (the file's records join the store's)");
    else
        return request;
    return std::nullopt;
}

bool running()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() &&
           bus.interface()->isServiceRegistered(DesktopBus::Service).value();
}

void report(const Request& request, const QStringList& summary, QTextStream& out)
{
    if (!request.isImport) {
        out << "Exported to " << request.file << '\n';
        if (!request.csvDirectory.isEmpty())
            out << "CSV files in " << request.csvDirectory << '\n';
        return;
    }
    for (const QString& line : summary)
        out << line << '\n';
    out << "Imported " << request.file << '\n';
}

int throughRunningApp(const Request& request, QTextStream& out, QTextStream& err)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        DesktopBus::Service, DesktopBus::ObjectPath, DesktopBus::DataInterface,
        request.isImport ? QStringLiteral("Import") : QStringLiteral("Export"));
    if (request.isImport)
        call << request.file
             << (request.mode == ExportDocument::Mode::Replace ? QStringLiteral("replace")
                                                               : QStringLiteral("merge"));
    else
        call << request.file << request.csvDirectory;
    call.setAutoStartService(false);
    const QDBusMessage reply =
        QDBusConnection::sessionBus().call(call, QDBus::Block, CallTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        err << "tidewell: " << reply.errorMessage() << '\n';
        return reply.errorName().startsWith(u"com.brenlow.tidewell.Error.") ? DataCommand::Refused
                                                                            : DataCommand::Failed;
    }
    report(request, request.isImport ? reply.arguments().value(0).toStringList() : QStringList(),
           out);
    return DataCommand::Ok;
}

int onTheStore(const Request& request, QTextStream& out, QTextStream& err)
{
    QString error;
    // Checked before the store is touched: a bad file leaves no trace.
    std::optional<ExportDocument> document;
    if (request.isImport && !(document = DataTransfer::readFile(request.file, &error))) {
        err << "tidewell: " << error << '\n';
        return DataCommand::Refused;
    }
    const QString path = DataStore::defaultPath(&error);
    bool held = false;
    std::unique_ptr<StoreLock> lock =
        path.isEmpty() ? nullptr : StoreLock::acquire(path, &held, &error);
    if (held) {
        err << "tidewell: Tidewell is running but not on the session bus; quit it and try "
               "again\n";
        return DataCommand::Failed;
    }
    std::unique_ptr<DataStore> store = path.isEmpty() ? nullptr : DataStore::open(path, &error);
    if (!store) {
        err << "tidewell: cannot open the store at " << path << ": " << error << '\n';
        return DataCommand::Failed;
    }
    const Clock clock;
    DataTransfer transfer(*store, clock);
    QStringList summary;
    const bool ok = request.isImport
                        ? transfer.importDocument(*document, request.mode, &summary, &error)
                        : transfer.exportTo(request.file, request.csvDirectory, &error);
    if (!ok) {
        err << "tidewell: " << error << '\n';
        return DataCommand::Failed;
    }
    report(request, summary, out);
    return DataCommand::Ok;
}
} // namespace

bool DataCommand::handles(const QStringList& args)
{
    return args.value(0) == u"export" || args.value(0) == u"import";
}

int DataCommand::run(const QStringList& args, QTextStream& out, QTextStream& err)
{
    QString problem;
    const std::optional<Request> request = parse(args, &problem);
    if (!request) {
        err << "tidewell: " << problem << "\nTry 'tidewell --help'.\n";
        return Usage;
    }
    return running() ? throughRunningApp(*request, out, err) : onTheStore(*request, out, err);
}
