#pragma once

#include "ServerDatabase.h"
#include "SqliteWriteGroup.h"

#include <QHash>

#include <memory>
#include <mutex>

struct sqlite3;
struct sqlite3_stmt;

// The embedded engine: one file in WAL mode, every commit synchronous. Readers
// never wait; writers of one process take turns on a lock of their own instead of
// SQLite's busy handler, which sleeps in steps far longer than a write takes, and
// transactions that arrive together are committed together.
class SqliteDatabase final : public ServerDatabase
{
public:
    static std::unique_ptr<SqliteDatabase> connect(const Settings& settings, QString* error);
    ~SqliteDatabase() override;

    Engine engine() const override { return Engine::SQLite; }
    std::optional<Result> exec(const QString& sql, const QVariantList& values = {},
                               QString* error = nullptr) override;
    bool begin(bool write = true) override;
    bool commit() override;
    void rollback() override;
    bool transact(const Work& work, QString* error) override;

private:
    SqliteDatabase(sqlite3* db, std::shared_ptr<SqliteWriteGroup> group, int timeoutMs);
    // Runs `batch` in one transaction, each in a savepoint; false when the commit failed.
    bool runGroup(const std::deque<SqliteWriteGroup::Pending*>& batch, QString* error);
    bool run(const char* sql);
    // Waits for this process's write lock until the statement's deadline.
    bool takeWriteLock();
    void releaseWriteLock();

    sqlite3* m_db;
    QHash<QString, sqlite3_stmt*> m_statements;
    // Shared by every connection of this process to the same file.
    std::shared_ptr<SqliteWriteGroup> m_group;
    bool m_holdsWriteLock = false;
    bool m_inTransaction = false;
    int m_timeoutMs;
};
