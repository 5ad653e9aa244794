#include "DataTransfer.h"

#include "Clock.h"
#include "CsvExport.h"
#include "DataStore.h"
#include "PomodoroService.h"
#include "StoreRestore.h"
#include "SyncEngine.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <QCoro/QCoroTask>

namespace {
bool writeFile(const QString& path, const QByteArray& bytes, QString* error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        *error = u"cannot write " + path + u": " + file.errorString();
        return false;
    }
    return true;
}
} // namespace

DataTransfer::DataTransfer(DataStore& store, const Clock& clock, PomodoroService* timer,
                           SyncEngine* sync, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_clock(clock)
    , m_timer(timer)
    , m_sync(sync)
{}

std::optional<ExportDocument> DataTransfer::readFile(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = u"cannot read " + path + u": " + file.errorString();
        return std::nullopt;
    }
    if (file.size() > ExportDocument::MaxFileBytes) {
        *error = QStringLiteral("%1 is %2 MB, larger than the %3 MB Tidewell imports")
                     .arg(path)
                     .arg(file.size() >> 20)
                     .arg(ExportDocument::MaxFileBytes >> 20);
        return std::nullopt;
    }
    std::optional<ExportDocument> document = ExportDocument::read(file.readAll(), error);
    if (!document)
        *error = path + u": " + *error;
    return document;
}

bool DataTransfer::exportTo(const QString& path, const QString& csvDirectory, QString* error)
{
    ModelContext& context = m_store.mainContext();
    const QByteArray json = ExportDocument::write(context, m_clock.now(), error);
    if (json.isEmpty() || !writeFile(path, json, error))
        return false;
    if (csvDirectory.isEmpty())
        return true;
    if (!QDir().mkpath(csvDirectory)) {
        *error = u"cannot create the folder " + csvDirectory;
        return false;
    }
    const QDir folder(csvDirectory);
    return writeFile(folder.filePath(QStringLiteral("habit_history.csv")),
                     CsvExport::habitHistory(context), error) &&
           writeFile(folder.filePath(QStringLiteral("focus_sessions.csv")),
                     CsvExport::focusSessions(context), error);
}

bool DataTransfer::importDocument(const ExportDocument& document, ExportDocument::Mode mode,
                                  QStringList* summary, QString* error)
{
    ModelContext& context = m_store.mainContext();
    // Whatever is pending belongs to the store as it was: save it on its own, so the
    // import's transaction holds only the import.
    if (context.hasChanges() && !context.save(error))
        return false;
    const ExportDocument::Plan plan = document.plan(context, mode);
    if (!ExportDocument::apply(context, plan, error))
        return false;
    *summary = plan.summary();
    if (summary->isEmpty())
        summary->append(QStringLiteral("Nothing to change: the store already holds this data"));
    if (m_timer)
        m_timer->reloadFromStore();
    if (m_sync) {
        // As after an edit: each resource once, whole; dropped while signed out.
        QCoro::connect(m_sync->pushHabits(), this, [] {});
        QCoro::connect(m_sync->pushTasks(), this, [] {});
        QCoro::connect(m_sync->pushPomodoro(), this, [] {});
    }
    emit imported();
    return true;
}

bool DataTransfer::requestRestore(const QString& path, QString* error)
{
    if (!StoreRestore::check(path, error))
        return false;
    emit restoreRequested(path);
    return true;
}
