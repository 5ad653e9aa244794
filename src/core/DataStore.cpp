#include "DataStore.h"

#include "BundleInfo.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {
DataStore*& sharedInstance()
{
    static DataStore* instance = nullptr;
    return instance;
}

// Tables mirror the record types field by field (see RecordTable); foreign keys
// back the cascades the context performs, and the history indexes keep "today"
// and "this habit's days" cheap however many years of history there are.
const char* const schemaStatements[] = {
    R"(CREATE TABLE pomodoro_config (
        "id" TEXT PRIMARY KEY NOT NULL,
        "pomodoroDuration" INTEGER NOT NULL,
        "shortBreakDuration" INTEGER NOT NULL,
        "longBreakDuration" INTEGER NOT NULL,
        "pomodorosForLongBreak" INTEGER NOT NULL,
        "autoStart" INTEGER NOT NULL,
        "pomodoroCount" INTEGER NOT NULL,
        "pomodoroTotalCount" INTEGER NOT NULL,
        "shortBreakCount" INTEGER NOT NULL,
        "longBreakCount" INTEGER NOT NULL,
        "isBreak" INTEGER NOT NULL,
        "isShortBreak" INTEGER NOT NULL,
        "isLongBreak" INTEGER NOT NULL,
        "firstPomodoroCountDate" REAL))",
    R"(CREATE TABLE task_list (
        "id" TEXT PRIMARY KEY NOT NULL,
        "name" TEXT,
        "order" INTEGER NOT NULL,
        "highlightedTaskId" TEXT))",
    R"(CREATE TABLE task_item (
        "id" TEXT PRIMARY KEY NOT NULL,
        "header" TEXT,
        "priority" INTEGER,
        "checked" INTEGER NOT NULL,
        "order" INTEGER NOT NULL,
        "listId" TEXT REFERENCES task_list("id") ON DELETE CASCADE))",
    R"(CREATE INDEX task_item_list ON task_item("listId"))",
    R"(CREATE TABLE habit (
        "id" TEXT PRIMARY KEY NOT NULL,
        "icon" TEXT,
        "name" TEXT,
        "colorHex" TEXT,
        "maxValue" INTEGER NOT NULL,
        "currentValue" INTEGER NOT NULL,
        "firstTrackerDate" REAL,
        "order" INTEGER NOT NULL))",
    R"(CREATE TABLE habit_history (
        "id" TEXT PRIMARY KEY NOT NULL,
        "date" TEXT,
        "value" INTEGER NOT NULL,
        "maxValue" INTEGER NOT NULL,
        "completed" INTEGER NOT NULL,
        "habitId" TEXT REFERENCES habit("id") ON DELETE CASCADE))",
    // Covering: a day's records of every habit sit together, so showing today reads a
    // page or two instead of one page per habit.
    R"(CREATE INDEX habit_history_date ON habit_history(
        "date", "habitId", "value", "maxValue", "completed", "id"))",
    R"(CREATE INDEX habit_history_habit ON habit_history("habitId"))",
    R"(CREATE TABLE widget_placement (
        "widgetId" TEXT PRIMARY KEY NOT NULL,
        "mode" TEXT,
        "inStatusBar" INTEGER NOT NULL,
        "inFloating" INTEGER NOT NULL,
        "desktopFrameJSON" TEXT,
        "alwaysOnTop" INTEGER NOT NULL))",
};

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

DataStore& DataStore::shared()
{
    DataStore*& instance = sharedInstance();
    if (!instance) {
        QString error;
        const QString path = defaultPath(&error);
        if (path.isEmpty()) {
            std::fprintf(stderr, "%s\n", qPrintable(error));
            std::exit(EXIT_FAILURE);
        }
        std::unique_ptr<DataStore> store = open(path, &error);
        if (!store) {
            const QString line = u"Failed to initialise SwiftData store at " + path + u": " + error;
            std::fprintf(stderr, "%s\n", line.toLocal8Bit().constData());
            std::exit(EXIT_FAILURE);
        }
        instance = store.release();
    }
    return *instance;
}

void DataStore::setShared(std::unique_ptr<DataStore> store)
{
    delete sharedInstance();
    sharedInstance() = store.release();
}

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
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    db.setDatabaseName(m_path);
    // Saves run on the GUI thread: never wait long for a lock nobody else should hold.
    db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=1000"));
    if (!db.open()) {
        *error = db.lastError().text();
        return false;
    }
    // Read before anything is written: a damaged file fails here and stays untouched.
    QVariant version;
    if (!exec(db, QStringLiteral("PRAGMA user_version"), error, &version))
        return false;
    if (version.toInt() > SchemaVersion) {
        *error = QStringLiteral("the store was written by a newer version of Tidewell "
                                "(schema %1, this version reads %2)")
                     .arg(version.toInt())
                     .arg(SchemaVersion);
        return false;
    }
    if (!exec(db, QStringLiteral("PRAGMA foreign_keys = ON"), error) ||
        !exec(db, QStringLiteral("PRAGMA journal_mode = WAL"), error) ||
        !exec(db, QStringLiteral("PRAGMA synchronous = FULL"), error))
        return false;
    if (version.toInt() == 0 && !createSchema(error))
        return false;
    m_context = new ModelContext(db);
    return true;
}

bool DataStore::createSchema(QString* error)
{
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    if (!db.transaction()) {
        *error = db.lastError().text();
        return false;
    }
    for (const char* statement : schemaStatements) {
        if (!exec(db, QString::fromUtf8(statement), error)) {
            db.rollback();
            return false;
        }
    }
    if (!exec(db, QStringLiteral("PRAGMA user_version = %1").arg(SchemaVersion), error) ||
        !db.commit()) {
        db.rollback();
        return false;
    }
    return true;
}
