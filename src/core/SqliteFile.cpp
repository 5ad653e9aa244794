#include "SqliteFile.h"

#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <sqlite3.h>

SqliteFile::SqliteFile(const QString& path, int flags)
    : m_status(SQLITE_ERROR)
{
    m_status = sqlite3_open_v2(QFile::encodeName(path).constData(), &m_db,
                               flags | SQLITE_OPEN_NOMUTEX, nullptr);
}

void SqliteFile::readThroughOnce() const
{
    // A page cache of SQLite's default 2 MB would be filled by one pass and kept
    // at the process's peak for the rest of the day.
    if (isOpen())
        sqlite3_exec(m_db, "PRAGMA cache_size = -256", nullptr, nullptr, nullptr);
}

SqliteFile::~SqliteFile()
{
    sqlite3_close_v2(m_db);
}

QString SqliteFile::readOnlyUri(const QString& path)
{
    // Without a write-ahead log the file is complete on its own, and reading it as
    // immutable creates no -wal and -shm beside it. With one (a crash, or another
    // process at work) it has to be read through the log.
    const QFileInfo log(path + QStringLiteral("-wal"));
    const QString uri =
        QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString(QUrl::FullyEncoded);
    return !log.exists() || log.size() == 0 ? uri + QStringLiteral("?immutable=1")
                                            : uri + QStringLiteral("?mode=ro");
}

bool SqliteFile::isOpen() const
{
    return m_status == SQLITE_OK;
}

QString SqliteFile::error() const
{
    return m_db ? QString::fromUtf8(sqlite3_errmsg(m_db))
                : QString::fromUtf8(sqlite3_errstr(m_status));
}

bool SqliteFile::failedOnDamage() const
{
    const int code = (m_db ? sqlite3_extended_errcode(m_db) : m_status) & 0xff;
    return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

bool SqliteFile::rows(const QString& sql, QList<QStringList>* out, QString* error,
                      const QString& bind) const
{
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(m_db, sql.toUtf8().constData(), -1, &statement, nullptr) != SQLITE_OK) {
        *error = this->error();
        return false;
    }
    const QByteArray bound = bind.toUtf8();
    if (!bind.isEmpty())
        sqlite3_bind_text(statement, 1, bound.constData(), int(bound.size()), SQLITE_STATIC);
    int status = SQLITE_ROW;
    while ((status = sqlite3_step(statement)) == SQLITE_ROW) {
        QStringList row;
        for (int i = 0; i < sqlite3_column_count(statement); ++i)
            row.append(QString::fromUtf8(
                reinterpret_cast<const char*>(sqlite3_column_text(statement, i))));
        out->append(row);
    }
    sqlite3_finalize(statement);
    if (status != SQLITE_DONE) {
        *error = this->error();
        return false;
    }
    return true;
}

QString SqliteFile::value(const QString& sql, const QString& fallback) const
{
    QList<QStringList> out;
    QString ignored;
    if (!rows(sql, &out, &ignored) || out.isEmpty())
        return fallback;
    return out.first().value(0);
}

QString SqliteFile::damage() const
{
    if (!isOpen())
        return error();
    readThroughOnce();
    QList<QStringList> out;
    QString error;
    // quick_check reads every page but skips comparing indexes with their tables,
    // which would triple the cost on a store with years of history.
    if (!rows(QStringLiteral("PRAGMA quick_check"), &out, &error))
        return error;
    if (out.size() == 1 && out.first().value(0) == u"ok")
        return {};
    return out.value(0).value(0);
}
