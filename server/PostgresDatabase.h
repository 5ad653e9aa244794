#pragma once

#include "ServerDatabase.h"

#include <QByteArray>
#include <QHash>

#include <memory>

struct pg_conn;

// PostgreSQL through libpq, without ever blocking past a deadline: connecting and
// every statement wait on the socket with a timeout, so a hung or restarting
// database costs a request a few seconds and a 503, never a frozen thread. A lost
// connection is dropped and made again, with its prepared statements, on the next
// statement. The password comes from the URL, PGPASSWORD, ~/.pgpass or the
// settings (a file the operator named), never from the command line.
class PostgresDatabase final : public ServerDatabase
{
public:
    static std::unique_ptr<PostgresDatabase> connect(const Settings& settings, QString* error);
    // Not connected yet: the first statement connects.
    static std::unique_ptr<PostgresDatabase> attach(const Settings& settings);
    ~PostgresDatabase() override;

    Engine engine() const override { return Engine::PostgreSQL; }
    std::optional<Result> exec(const QString& sql, const QVariantList& values = {},
                               QString* error = nullptr) override;
    bool begin(bool write = true) override;
    bool commit() override;
    void rollback() override;

    // "?" placeholders as PostgreSQL's "$1", "$2", …
    static QByteArray numberedPlaceholders(const QString& sql);

private:
    explicit PostgresDatabase(Settings settings);
    bool ensureConnected(QString* error);
    void drop();
    bool run(const char* sql, QString* error = nullptr);

    Settings m_settings;
    pg_conn* m_conn = nullptr;
    QHash<QString, QByteArray> m_prepared; // SQL -> statement name on this connection
    int m_nextStatement = 0;
    bool m_inTransaction = false;
};
