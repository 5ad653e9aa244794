#include "DataStore.h"

#include "BundleInfo.h"
#include "StoreConnection.h"
#include "StoreProbe.h"
#include "StoreSchema.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <future>
#include <mutex>

namespace {
// A look started ahead of time by probeInBackground().
struct Ahead
{
    std::mutex lock;
    QString path;
    std::future<StoreProbe::Result> result;
};

Ahead& ahead()
{
    static Ahead* a = new Ahead; // never destroyed: its thread may still run at exit
    return *a;
}

StoreProbe::Result examination(const QString& path)
{
    Ahead& a = ahead();
    {
        std::lock_guard<std::mutex> locker(a.lock);
        if (a.result.valid() && a.path == path)
            return a.result.get();
    }
    return StoreProbe::examine(path);
}
} // namespace

QString DataStore::defaultPath(QString* error)
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty() || !QDir().mkpath(base)) {
        *error = QStringLiteral("Cannot find or create the application data directory");
        return {};
    }
    const QString id = BundleInfo::current().identifier;
    const QString folder = base + u'/' + (id.isEmpty() ? QStringLiteral("Tidewell") : id);
    if (!QFileInfo::exists(folder))
        QDir().mkpath(folder); // a failure shows when the store is opened
    return folder + QStringLiteral("/store.sqlite");
}

void DataStore::probeInBackground(const QString& path)
{
    Ahead& a = ahead();
    std::lock_guard<std::mutex> locker(a.lock);
    a.path = path;
    a.result = std::async(std::launch::async, &StoreProbe::examine, path);
}

std::unique_ptr<DataStore> DataStore::open(const QString& path, QString* error)
{
    std::unique_ptr<DataStore> store(new DataStore(path));
    QString why;
    if (!store->initialise(&why)) {
        if (error)
            *error = why;
        return nullptr;
    }
    return store;
}

DataStore::DataStore(const QString& path)
    : m_path(path)
    , m_connection(std::make_unique<StoreConnection>())
{}

DataStore::~DataStore()
{
    // The context's records go before the connection they were read through.
    delete m_context;
    m_context = nullptr;
}

bool DataStore::initialise(QString* error)
{
    // Nothing is written before the file has shown that it is ours, whole and writable:
    // a store refused here is left exactly as it was.
    const StoreProbe::Result examined = examination(m_path);
    if (examined.verdict == StoreProbe::Verdict::Refused) {
        *error = examined.reason;
        return false;
    }
    StoreConnection& db = *m_connection;
    if (!db.open(m_path, error))
        return false;
    if (!db.run("PRAGMA foreign_keys = ON", error) || !db.run("PRAGMA journal_mode = WAL", error) ||
        !db.run("PRAGMA synchronous = FULL", error))
        return false;
    m_isNew = examined.verdict == StoreProbe::Verdict::Empty;
    if (m_isNew && !migrate(StoreSchema::statements(), error))
        return false;
    if (examined.verdict == StoreProbe::Verdict::Older &&
        !migrate(StoreSchema::upgrade(examined.version), error)) {
        *error = QStringLiteral("the store could not be upgraded from schema %1: %2")
                     .arg(examined.version)
                     .arg(*error);
        return false;
    }
    m_context = new ModelContext(db);
    return true;
}

void DataStore::mapForLargeReads()
{
    QString error;
    // Writes still go through the journal. Without the mapping reads are slower,
    // not wrong, so a refusal is not an error.
    if (!m_mapped)
        m_mapped = m_connection->run("PRAGMA mmap_size = 268435456", &error);
}

bool DataStore::migrate(const QList<const char*>& statements, QString* error)
{
    // All or nothing: an upgrade cut short leaves the store at its old version, whole.
    StoreConnection& db = *m_connection;
    if (!db.run("BEGIN", error))
        return false;
    for (const char* statement : statements) {
        if (!db.run(statement, error)) {
            db.rollback();
            return false;
        }
    }
    const QByteArray version = "PRAGMA user_version = " + QByteArray::number(StoreSchema::Version);
    if (!db.run(version.constData(), error) || !db.run("COMMIT", error)) {
        db.rollback();
        return false;
    }
    return true;
}
