#include "DataStore.h"

#include "BundleInfo.h"
#include "StoreProbe.h"
#include "StoreSchema.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>

#include <atomic>
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

bool exec(QSqlDatabase& db, const QString& sql, QString* error, QVariant* result = nullptr)
{
    QSqlQuery query(db);
    if (!query.exec(sql)) {
        *error = query.lastError().text();
        return false;
    }
    if (result && query.next())
        *result = query.value(0);
    return true;
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
    static std::atomic<int> counter{0};
    const QString connection = QStringLiteral("tidewell-store-%1").arg(counter++);
    std::unique_ptr<DataStore> store(new DataStore(path, connection));
    QString why;
    if (!store->initialise(&why)) {
        if (error)
            *error = why;
        return nullptr;
    }
    return store;
}

DataStore::DataStore(const QString& path, const QString& connection)
    : m_path(path)
    , m_connection(connection)
{}

QSqlDatabase DataStore::database() const
{
    return QSqlDatabase::database(m_connection, false);
}

DataStore::~DataStore()
{
    delete m_context;
    m_context = nullptr;
    {
        QSqlDatabase db = QSqlDatabase::database(m_connection, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
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
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    db.setDatabaseName(m_path);
    // Saves run on the GUI thread: never wait long for a lock nobody else should hold.
    db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=1000"));
    if (!db.open()) {
        *error = db.lastError().text();
        return false;
    }
    if (!exec(db, QStringLiteral("PRAGMA foreign_keys = ON"), error) ||
        !exec(db, QStringLiteral("PRAGMA journal_mode = WAL"), error) ||
        !exec(db, QStringLiteral("PRAGMA synchronous = FULL"), error) ||
        // Reads through a mapping instead of a system call per page: years of history
        // are read in a few milliseconds. Writes still go through the journal.
        !exec(db, QStringLiteral("PRAGMA mmap_size = 268435456"), error))
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

bool DataStore::migrate(const QList<const char*>& statements, QString* error)
{
    // All or nothing: an upgrade cut short leaves the store at its old version, whole.
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    if (!db.transaction()) {
        *error = db.lastError().text();
        return false;
    }
    for (const char* statement : statements) {
        if (!exec(db, QString::fromUtf8(statement), error)) {
            db.rollback();
            return false;
        }
    }
    if (!exec(db, QStringLiteral("PRAGMA user_version = %1").arg(StoreSchema::Version), error) ||
        !db.commit()) {
        if (error->isEmpty())
            *error = db.lastError().text();
        db.rollback();
        return false;
    }
    return true;
}
