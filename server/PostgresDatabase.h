#pragma once

#include "ServerDatabase.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QVarLengthArray>

#include <memory>

class QDeadlineTimer;
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
    // Parameters as libpq takes them: text, or null.
    struct Parameters
    {
        explicit Parameters(const QVariantList& values);
        QList<QByteArray> storage;
        QVarLengthArray<const char*, 8> pointers;
    };

    explicit PostgresDatabase(Settings settings);
    // Sends the statement (prepared once when it can be cached).
    bool send(const QString& sql, const Parameters& params, const QDeadlineTimer& until,
              QString* why);
    // Sends what is queued and reads until a whole result is there.
    bool flush(const QDeadlineTimer& until, QString* why);
    // Every result of what was sent, its rows into `into` when given.
    bool awaitResults(const QDeadlineTimer& until, Result* into, QString* why);
    bool ensureConnected(QString* error);
    void drop();
    bool run(const char* sql, QString* error = nullptr);

    Settings m_settings;
    pg_conn* m_conn = nullptr;
    QHash<QString, QByteArray> m_prepared; // SQL -> statement name on this connection
    int m_nextStatement = 0;
    bool m_inTransaction = false;
};
