#pragma once

#include <QByteArray>
#include <QDeadlineTimer>
#include <QList>
#include <QString>
#include <QVariant>

#include <functional>
#include <memory>
#include <optional>

// One connection to the server's database: an embedded SQLite file, or PostgreSQL
// shared by any number of server processes. Everything above speaks the SQL both
// understand; the few differences (identity columns, placeholders, pragmas) stay
// in the two engines. A connection is used by one thread at a time; the server
// gives each of its worker threads one of its own.
//
// A failed statement is either refused by a uniqueness constraint or the storage
// failing (unreachable, timed out, locked, damaged); callers tell the two apart
// with lastWasUniqueViolation(). The storage failing is never an answer about the
// data, so nobody mistakes an outage for "no such token".
class ServerDatabase
{
public:
    enum class Engine { SQLite, PostgreSQL };
    static constexpr int SchemaVersion = 1;
    // How long one request may wait on the database before it is answered 503.
    static constexpr int DefaultTimeoutMs = 4000;

    struct Settings
    {
        // "sqlite:PATH", "sqlite::memory:" or a libpq URL ("postgresql://user@host/db",
        // "?host=/socket/dir" for a socket folder).
        QString url;
        // The PostgreSQL password when it is not in the URL, PGPASSWORD or ~/.pgpass.
        QString password;
        int timeoutMs = DefaultTimeoutMs;
    };

    struct Result
    {
        // Integers come as qint64, text as UTF-8 QByteArray, NULL as an invalid QVariant.
        QList<QVariantList> rows;
        int affected = 0;
    };

    // Connects and creates or checks the schema (refusing a newer one). Null, with
    // the reason, when it cannot.
    static std::unique_ptr<ServerDatabase> open(const Settings& settings, QString* error);
    // Another connection to a database open() has checked. PostgreSQL connects on
    // its first statement, so a database that is down now does not stop a thread.
    static std::unique_ptr<ServerDatabase> join(const Settings& settings, QString* error);
    // $XDG_DATA_HOME/tidewell-server/server.sqlite, as a "sqlite:" URL.
    static QString defaultUrl();

    virtual ~ServerDatabase() = default;
    ServerDatabase(const ServerDatabase&) = delete;
    ServerDatabase& operator=(const ServerDatabase&) = delete;

    virtual Engine engine() const = 0;

    // Runs `sql` with `values` bound to its "?" in order and returns every row;
    // absent, with the reason, on failure. Values are integers, strings, UTF-8
    // byte arrays or null. Statements are prepared once per connection and kept;
    // after the connection was lost it is opened again on the next call.
    virtual std::optional<Result> exec(const QString& sql, const QVariantList& values = {},
                                       QString* error = nullptr) = 0;

    // A transaction; `write` takes the write lock at once (SQLite), so that two
    // writers never deadlock upgrading a read.
    virtual bool begin(bool write = true) = 0;
    virtual bool commit() = 0;
    virtual void rollback() = 0;

    // Runs `work` in a write transaction and commits it; false, with the reason,
    // when `work` fails (all of it is undone) or the commit does. `work` is given
    // the connection to use, which need not be this one: SQLite commits the work
    // of concurrent writers together.
    using Work = std::function<bool(ServerDatabase& db, QString* error)>;
    virtual bool transact(const Work& work, QString* error);

    // Whether the last failed exec() was refused by a uniqueness constraint.
    bool lastWasUniqueViolation() const { return m_uniqueViolation; }
    // How many statements failed for the storage (not a constraint) so far, and why
    // the last one did.
    int storageFailures() const { return m_storageFailures; }
    QString lastFailure() const { return m_lastFailure; }

    // Statements from now on give up at `deadline` (never later than the timeout).
    void setDeadline(QDeadlineTimer deadline) { m_deadline = deadline; }

protected:
    ServerDatabase() = default;
    // When the statement now starting must have finished.
    QDeadlineTimer deadline(int timeoutMs) const;
    bool migrate(QString* error);

    // What an engine calls for every failed statement.
    void noteFailure(bool uniqueViolation, const QString& why);

    bool m_uniqueViolation = false;
    int m_storageFailures = 0;
    QString m_lastFailure;
    QDeadlineTimer m_deadline = QDeadlineTimer::Forever;
};
