#include "DataCommand.h"

#include "Clock.h"
#include "DataStore.h"
#include "DataTransfer.h"
#include "StoreLock.h"

#include <QFileInfo>

namespace {
using Request = DataCommand::Request;

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
        err << "tidewell: Tidewell is running but cannot be reached; quit it and try again\n";
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
    DataCommand::report(request, summary, out);
    return DataCommand::Ok;
}
} // namespace

bool DataCommand::handles(const QStringList& args)
{
    return args.value(0) == u"export" || args.value(0) == u"import";
}

int DataCommand::run(const QStringList& args, QTextStream& out, QTextStream& err,
                     const HandOff& handOff)
{
    QString problem;
    const std::optional<Request> request = parse(args, &problem);
    if (!request) {
        err << "tidewell: " << problem << "\nTry 'tidewell --help'.\n";
        return Usage;
    }
    if (const std::optional<int> status = handOff(*request, out, err))
        return *status;
    return onTheStore(*request, out, err);
}

void DataCommand::report(const Request& request, const QStringList& summary, QTextStream& out)
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
