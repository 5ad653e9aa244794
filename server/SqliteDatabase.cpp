#include "SqliteDatabase.h"

#include <QDir>
#include <QFileInfo>

#include <sqlite3.h>

#include <chrono>

namespace {
QString messageOf(sqlite3* db)
{
    return QString::fromUtf8(sqlite3_errmsg(db));
}

// Binds `values` to the statement's parameters in order.
void bind(sqlite3_stmt* statement, const QVariantList& values)
{
    for (qsizetype i = 0; i < values.size(); ++i) {
        const QVariant& v = values.at(i);
        const int at = int(i) + 1;
        switch (v.typeId()) {
        case QMetaType::UnknownType:
            sqlite3_bind_null(statement, at);
            break;
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Bool:
            sqlite3_bind_int64(statement, at, v.toLongLong());
            break;
        case QMetaType::QByteArray: {
            const QByteArray bytes = v.toByteArray();
            sqlite3_bind_text(statement, at, bytes.constData(), int(bytes.size()),
                              SQLITE_TRANSIENT);
            break;
        }
        default: {
            const QByteArray utf8 = v.toString().toUtf8();
            sqlite3_bind_text(statement, at, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
        }
        }
    }
}

// The statement's current row: integers and reals as numbers, the rest as UTF-8.
QVariantList currentRow(sqlite3_stmt* statement, int columns)
{
    QVariantList row;
    row.reserve(columns);
    for (int c = 0; c < columns; ++c) {
        switch (sqlite3_column_type(statement, c)) {
        case SQLITE_NULL:
            row.append(QVariant());
            break;
        case SQLITE_INTEGER:
            row.append(qint64(sqlite3_column_int64(statement, c)));
            break;
        case SQLITE_FLOAT:
            row.append(sqlite3_column_double(statement, c));
            break;
        default: {
            const char* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, c));
            row.append(QByteArray(text, sqlite3_column_bytes(statement, c)));
        }
        }
    }
    return row;
}
} // namespace

std::unique_ptr<SqliteDatabase> SqliteDatabase::connect(const Settings& settings, QString* error)
{
    const QString path = settings.url.mid(7);
    if (path.isEmpty()) {
        *error = QStringLiteral("the SQLite URL names no file");
        return nullptr;
    }
    const bool memory = path == u":memory:";
    if (!memory && !QDir().mkpath(QFileInfo(path).absolutePath())) {
        *error = u"cannot make the folder " + QFileInfo(path).absolutePath();
        return nullptr;
    }
    sqlite3* db = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(path.toUtf8().constData(), &db, flags, nullptr) != SQLITE_OK) {
        *error = db ? messageOf(db) : QStringLiteral("out of memory");
        sqlite3_close(db);
        return nullptr;
    }
    sqlite3_extended_result_codes(db, 1);
    // Other processes (the command line) may write the same file; wait for them.
    sqlite3_busy_timeout(db, settings.timeoutMs);
    std::unique_ptr<SqliteDatabase> out(new SqliteDatabase(
        db, SqliteWriteGroup::of(memory ? QString() : QFileInfo(path).absoluteFilePath()),
        settings.timeoutMs));
    // SQLite would copy the log back in the commit that fills it, while this
    // process's writers wait on the lock; the group's own thread does it instead.
    sqlite3_wal_autocheckpoint(db, 0);
    sqlite3_wal_hook(
        db,
        [](void* self, sqlite3*, const char*, int pages) {
            static_cast<SqliteWriteGroup*>(self)->noteLogPages(pages);
            return SQLITE_OK;
        },
        out->m_group.get());
    // A small page cache per connection: the server keeps one connection a thread.
    for (const char* pragma :
         {"PRAGMA foreign_keys = ON", "PRAGMA journal_mode = WAL", "PRAGMA synchronous = FULL",
          "PRAGMA cache_size = -1024", "PRAGMA temp_store = MEMORY"}) {
        if (!out->run(pragma)) {
            *error = messageOf(db);
            return nullptr;
        }
    }
    return out;
}

SqliteDatabase::SqliteDatabase(sqlite3* db, std::shared_ptr<SqliteWriteGroup> group, int timeoutMs)
    : m_db(db)
    , m_group(std::move(group))
    , m_timeoutMs(timeoutMs)
{}

SqliteDatabase::~SqliteDatabase()
{
    for (sqlite3_stmt* statement : std::as_const(m_statements))
        sqlite3_finalize(statement);
    releaseWriteLock();
    sqlite3_close_v2(m_db);
}

bool SqliteDatabase::run(const char* sql)
{
    return sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool SqliteDatabase::takeWriteLock()
{
    const QDeadlineTimer until = deadline(m_timeoutMs);
    if (!m_group->writeLock.try_lock_for(std::chrono::milliseconds(until.remainingTime())))
        return false;
    // Another process holding the file's lock is waited for as long, no longer.
    sqlite3_busy_timeout(m_db, int(std::max<qint64>(until.remainingTime(), 1)));
    return true;
}

void SqliteDatabase::releaseWriteLock()
{
    if (m_holdsWriteLock) {
        m_group->writeLock.unlock();
        m_holdsWriteLock = false;
    }
}

std::optional<ServerDatabase::Result>
SqliteDatabase::exec(const QString& sql, const QVariantList& values, QString* error)
{
    m_uniqueViolation = false;
    const auto fail = [&](const QString& why) -> std::optional<Result> {
        noteFailure(m_uniqueViolation, why);
        if (error)
            *error = why;
        return std::nullopt;
    };
    sqlite3_stmt*& statement = m_statements[sql];
    if (!statement) {
        const QByteArray utf8 = sql.toUtf8();
        if (sqlite3_prepare_v3(m_db, utf8.constData(), int(utf8.size()), SQLITE_PREPARE_PERSISTENT,
                               &statement, nullptr) != SQLITE_OK) {
            m_statements.remove(sql);
            return fail(messageOf(m_db));
        }
    }
    bind(statement, values);
    // A write outside a transaction takes this process's write lock for itself.
    const bool lockHere = !m_inTransaction && !sqlite3_stmt_readonly(statement);
    if (lockHere && !takeWriteLock()) {
        sqlite3_clear_bindings(statement);
        return fail(QStringLiteral("timed out waiting for another write"));
    }
    Result result;
    const int columns = sqlite3_column_count(statement);
    int rc;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
        result.rows.append(currentRow(statement, columns));
    }
    result.affected = sqlite3_changes(m_db);
    const QString why = rc == SQLITE_DONE ? QString() : messageOf(m_db);
    if (lockHere)
        m_group->writeLock.unlock();
    // Reset at once: an open statement holds the reader's snapshot, and the
    // connection would not see what others wrote since.
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    if (rc != SQLITE_DONE) {
        m_uniqueViolation = rc == SQLITE_CONSTRAINT_UNIQUE || rc == SQLITE_CONSTRAINT_PRIMARYKEY;
        return fail(why);
    }
    return result;
}

bool SqliteDatabase::begin(bool write)
{
    if (write) {
        if (!takeWriteLock())
            return false;
        m_holdsWriteLock = true;
    }
    m_inTransaction = run(write ? "BEGIN IMMEDIATE" : "BEGIN");
    if (!m_inTransaction)
        releaseWriteLock();
    return m_inTransaction;
}

bool SqliteDatabase::commit()
{
    const bool ok = run("COMMIT");
    if (ok) {
        m_inTransaction = false;
        releaseWriteLock();
    }
    return ok;
}

void SqliteDatabase::rollback()
{
    if (m_inTransaction)
        run("ROLLBACK");
    m_inTransaction = false;
    releaseWriteLock();
}

bool SqliteDatabase::transact(const Work& work, QString* error)
{
    SqliteWriteGroup::Pending me;
    me.work = &work;
    if (!m_group->join(&me)) {
        m_group->wait(&me);
        if (me.done) {
            if (!me.ok && error)
                *error = me.error;
            return me.ok;
        }
    }
    // Leading: run what is queued (this request among it) and hand over.
    const std::deque<SqliteWriteGroup::Pending*> batch = m_group->takeQueued();
    QString why;
    if (!runGroup(batch, &why)) {
        for (SqliteWriteGroup::Pending* p : batch) {
            p->ok = false;
            p->error = why;
        }
    }
    const bool ok = me.ok;
    const QString myError = me.error;
    m_group->finish(batch); // `me` may be read by nobody after this
    if (!ok && error)
        *error = myError;
    return ok;
}

bool SqliteDatabase::runGroup(const std::deque<SqliteWriteGroup::Pending*>& batch, QString* error)
{
    if (!begin(true)) {
        *error = QStringLiteral("cannot begin a transaction: ") + messageOf(m_db);
        return false;
    }
    for (SqliteWriteGroup::Pending* p : batch) {
        // A transaction that fails is undone alone; the others still commit.
        run("SAVEPOINT tws_work");
        p->ok = (*p->work)(*this, &p->error);
        if (!p->ok)
            run("ROLLBACK TO tws_work");
        run("RELEASE tws_work");
    }
    if (!commit()) {
        *error = QStringLiteral("the transaction could not be committed: ") + messageOf(m_db);
        rollback();
        return false;
    }
    return true;
}
