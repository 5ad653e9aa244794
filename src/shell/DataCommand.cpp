#include "DataCommand.h"

#include "Clock.h"
#include "DataStore.h"
#include "DataTransfer.h"
#include "StoreBackups.h"
#include "StoreLock.h"
#include "StoreProbe.h"
#include "StoreRestore.h"

#include <QDateTime>
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

QString storeBackupsFolder()
{
    QString ignored;
    const QString store = DataStore::defaultPath(&ignored);
    return store.isEmpty() ? QString() : StoreBackups::folderFor(store);
}

// `restore-backup --list|DATE|FILE`: the request, or nothing when it is done (the
// list) or wrong (`status` set either way).
std::optional<Request> parseRestore(const QStringList& args, QTextStream& out, QTextStream& err,
                                    int* status)
{
    *status = DataCommand::Usage;
    if (args.size() != 2) {
        err << "tidewell: restore-backup: give --list, a DATE (YYYY-MM-DD) or a FILE\n"
               "Try 'tidewell --help'.\n";
        return std::nullopt;
    }
    const StoreBackups backups(storeBackupsFolder());
    const QString what = args.at(1);
    if (what == u"--list") {
        const QList<StoreBackups::Entry> entries = backups.list();
        if (entries.isEmpty())
            out << "No backups yet in " << backups.folder() << '\n';
        for (const StoreBackups::Entry& entry : entries) {
            out << entry.day.toString(Qt::ISODate) << "  ";
            if (entry.habits < 0)
                out << "cannot be read";
            else
                out << entry.habits << " habits, " << entry.lists << " lists, " << entry.tasks
                    << " tasks, " << entry.focusSessions << " focus sessions";
            out << "  " << entry.path << '\n';
        }
        *status = DataCommand::Ok;
        return std::nullopt;
    }
    if (what.startsWith(u'-')) {
        err << "tidewell: restore-backup: unexpected '" << what << "'\n";
        return std::nullopt;
    }
    Request request;
    request.isRestore = true;
    const QDate day = QDate::fromString(what, Qt::ISODate);
    if (day.isValid() && !QFileInfo::exists(what)) {
        request.file = backups.find(day).path;
        if (request.file.isEmpty()) {
            err << "tidewell: restore-backup: there is no backup of " << what
                << " ('tidewell restore-backup --list' shows them)\n";
            *status = DataCommand::Refused;
            return std::nullopt;
        }
    } else {
        request.file = QFileInfo(what).absoluteFilePath();
    }
    return request;
}

// The store's path and its lock, taken for the command; nothing (and the reason
// said) when there is no data folder or a Tidewell that cannot be reached holds
// the lock.
struct ClaimedStore
{
    QString path;
    std::unique_ptr<StoreLock> lock;
};

std::optional<ClaimedStore> claimStore(QTextStream& err)
{
    QString error;
    ClaimedStore claimed{DataStore::defaultPath(&error), nullptr};
    if (claimed.path.isEmpty()) {
        err << "tidewell: " << error << '\n';
        return std::nullopt;
    }
    bool held = false;
    QString ignored;
    claimed.lock = StoreLock::acquire(claimed.path, &held, &ignored);
    if (held) {
        err << "tidewell: Tidewell is running but cannot be reached; quit it and try again\n";
        return std::nullopt;
    }
    return claimed;
}

int restoreOnTheStore(const Request& request, QTextStream& out, QTextStream& err)
{
    QString error;
    if (!StoreRestore::check(request.file, &error)) {
        err << "tidewell: " << error << '\n';
        return DataCommand::Refused;
    }
    const std::optional<ClaimedStore> claimed = claimStore(err);
    if (!claimed)
        return DataCommand::Failed;
    const QString& path = claimed->path;
    const bool damaged = QFileInfo::exists(path) &&
                         (StoreProbe::examine(path).verdict == StoreProbe::Verdict::Refused ||
                          !StoreProbe::damage(path).isEmpty());
    QString aside;
    if (!StoreRestore::replace(path, request.file, damaged, QDateTime::currentDateTime(), &aside,
                               &error)) {
        err << "tidewell: " << error << '\n';
        return DataCommand::Failed;
    }
    const StoreBackups::Entry entry = StoreBackups::describe(request.file);
    const QString restored =
        entry.day.isValid() ? entry.day.toString(Qt::ISODate) : QFileInfo(request.file).fileName();
    // The next start says so, and pushes the restored data when signed in.
    StoreRestore::leaveNote(path, {restored, aside});
    DataCommand::report(request, {}, out);
    if (!aside.isEmpty())
        out << "The store as it was is kept as " << aside << '\n';
    return DataCommand::Ok;
}

int onTheStore(const Request& request, QTextStream& out, QTextStream& err)
{
    if (request.isRestore)
        return restoreOnTheStore(request, out, err);
    QString error;
    // Checked before the store is touched: a bad file leaves no trace.
    std::optional<ExportDocument> document;
    if (request.isImport && !(document = DataTransfer::readFile(request.file, &error))) {
        err << "tidewell: " << error << '\n';
        return DataCommand::Refused;
    }
    const std::optional<ClaimedStore> claimed = claimStore(err);
    if (!claimed)
        return DataCommand::Failed;
    std::unique_ptr<DataStore> store = DataStore::open(claimed->path, &error);
    if (!store) {
        err << "tidewell: cannot open the store at " << claimed->path << ": " << error << '\n';
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
    return args.value(0) == u"export" || args.value(0) == u"import" ||
           args.value(0) == u"restore-backup";
}

int DataCommand::run(const QStringList& args, QTextStream& out, QTextStream& err,
                     const HandOff& handOff)
{
    if (args.value(0) == u"restore-backup") {
        int status = Usage;
        const std::optional<Request> request = parseRestore(args, out, err, &status);
        if (!request)
            return status;
        if (const std::optional<int> handed = handOff(*request, out, err))
            return *handed;
        return onTheStore(*request, out, err);
    }
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
    if (request.isRestore) {
        out << "Restored " << request.file << '\n';
        return;
    }
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
