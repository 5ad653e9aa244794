#include "StoreConnection.h"

#include <QFile>

#include <sqlite3.h>

StoreConnection::~StoreConnection()
{
    for (sqlite3_stmt* statement : std::as_const(m_statements))
        sqlite3_finalize(statement);
    sqlite3_close_v2(m_db);
}

bool StoreConnection::open(const QString& path, QString* error)
{
    const int status =
        sqlite3_open_v2(QFile::encodeName(path).constData(), &m_db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (status != SQLITE_OK) {
        fail(status, error);
        sqlite3_close_v2(m_db);
        m_db = nullptr;
        return false;
    }
    sqlite3_extended_result_codes(m_db, 1);
    // Saves run on the GUI thread: never wait long for a lock nobody else should hold.
    sqlite3_busy_timeout(m_db, 1000);
    return true;
}

QString StoreConnection::describe(int resultCode, const QString& message)
{
    switch (resultCode & 0xff) {
    case SQLITE_IOERR:
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return DamagePrefix + message;
    default:
        return message;
    }
}

bool StoreConnection::fail(int resultCode, QString* error) const
{
    if (error) {
        const char* message = m_db ? sqlite3_errmsg(m_db) : sqlite3_errstr(resultCode);
        *error = describe(resultCode, QString::fromUtf8(message));
    }
    return false;
}

sqlite3_stmt* StoreConnection::prepared(const QString& sql, QString* error)
{
    if (sqlite3_stmt* statement = m_statements.value(sql))
        return statement;
    sqlite3_stmt* statement = nullptr;
    const QByteArray text = sql.toUtf8();
    const int status =
        sqlite3_prepare_v2(m_db, text.constData(), int(text.size()), &statement, nullptr);
    if (status != SQLITE_OK) {
        fail(status, error);
        return nullptr;
    }
    m_statements.insert(sql, statement);
    return statement;
}

namespace {
int bind(sqlite3_stmt* statement, int index, const QVariant& value)
{
    if (value.isNull())
        return sqlite3_bind_null(statement, index);
    switch (value.metaType().id()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return sqlite3_bind_int64(statement, index, value.toLongLong());
    case QMetaType::Double:
    case QMetaType::Float:
        return sqlite3_bind_double(statement, index, value.toDouble());
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        return sqlite3_bind_blob64(statement, index, bytes.constData(),
                                   sqlite3_uint64(bytes.size()), SQLITE_TRANSIENT);
    }
    default: {
        const QByteArray text = value.toString().toUtf8();
        return sqlite3_bind_text64(statement, index, text.constData(), sqlite3_uint64(text.size()),
                                   SQLITE_TRANSIENT, SQLITE_UTF8);
    }
    }
}

QVariant column(sqlite3_stmt* statement, int index)
{
    switch (sqlite3_column_type(statement, index)) {
    case SQLITE_INTEGER:
        return qlonglong(sqlite3_column_int64(statement, index));
    case SQLITE_FLOAT:
        return sqlite3_column_double(statement, index);
    case SQLITE_BLOB: {
        const auto* data = static_cast<const char*>(sqlite3_column_blob(statement, index));
        return QByteArray(data, sqlite3_column_bytes(statement, index));
    }
    case SQLITE_NULL:
        return QVariant();
    default: {
        const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(statement, index));
        return QString::fromUtf8(data, sqlite3_column_bytes(statement, index));
    }
    }
}
} // namespace

bool StoreConnection::exec(const QString& sql, const QVariantList& values,
                           QList<QVariantList>* rows, QString* error)
{
    if (!m_db) {
        if (error)
            *error = QStringLiteral("the store is not open");
        return false;
    }
    sqlite3_stmt* statement = prepared(sql, error);
    if (!statement)
        return false;
    // Leaves the statement ready for its next use, its values let go.
    struct Reset
    {
        sqlite3_stmt* statement;
        ~Reset()
        {
            sqlite3_reset(statement);
            sqlite3_clear_bindings(statement);
        }
    } reset{statement};
    for (int i = 0; i < values.size(); ++i) {
        if (const int status = bind(statement, i + 1, values[i]); status != SQLITE_OK)
            return fail(status, error);
    }
    QList<QVariantList> read;
    const int columns = sqlite3_column_count(statement);
    int status;
    while ((status = sqlite3_step(statement)) == SQLITE_ROW) {
        if (!rows)
            continue;
        QVariantList row;
        row.reserve(columns);
        for (int c = 0; c < columns; ++c)
            row.append(column(statement, c));
        read.append(std::move(row));
    }
    // A step that fails ends the rows like the last one does: never hand back
    // part of a table as the whole of it.
    if (status != SQLITE_DONE)
        return fail(status, error);
    if (rows)
        rows->append(std::move(read));
    return true;
}

bool StoreConnection::run(const char* sql, QString* error)
{
    if (!m_db) {
        if (error)
            *error = QStringLiteral("the store is not open");
        return false;
    }
    const int status = sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr);
    return status == SQLITE_OK || fail(status, error);
}

void StoreConnection::rollback()
{
    if (m_db && !sqlite3_get_autocommit(m_db))
        sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
}
