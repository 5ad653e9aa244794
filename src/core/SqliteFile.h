#pragma once

#include <QList>
#include <QString>
#include <QStringList>

struct sqlite3;

// One direct SQLite connection to a store file, closed however its use ends. For
// the looks at a store that run before, beside or without Qt SQL: the checks at
// open, the full check on its own thread, backups and their listing.
class SqliteFile
{
public:
    // `flags` as for sqlite3_open_v2; `path` may be a file: URI with SQLITE_OPEN_URI.
    SqliteFile(const QString& path, int flags);
    ~SqliteFile();
    SqliteFile(const SqliteFile&) = delete;
    SqliteFile& operator=(const SqliteFile&) = delete;

    // Read-only, through the write-ahead log when there is one, without creating
    // anything beside the file when there is none.
    static QString readOnlyUri(const QString& path);

    bool isOpen() const;
    sqlite3* handle() const { return m_db; }
    QString error() const;
    // Whether the last failure says the file is damaged (rather than busy or absent).
    bool failedOnDamage() const;

    // Every row of `sql`, each column as text; false (with the reason) on failure.
    // `bind`, when given, is bound to the statement's first parameter.
    bool rows(const QString& sql, QList<QStringList>* out, QString* error,
              const QString& bind = {}) const;
    // The first column of the first row, or `fallback` when the statement fails.
    QString value(const QString& sql, const QString& fallback = {}) const;

    // For a connection that reads the whole store once (a check, a copy): a small
    // page cache, as good for a single pass and far smaller.
    void readThroughOnce() const;

    // PRAGMA quick_check: every page read, each b-tree walked. Empty when whole,
    // else what is wrong.
    QString damage() const;

private:
    sqlite3* m_db = nullptr;
    int m_status = 0;
};
