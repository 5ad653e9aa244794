#include "ServerDatabase.h"

#include "PostgresDatabase.h"
#include "SqliteDatabase.h"

#include <QStandardPaths>

namespace {
// Version 1. `%ID%` is the engine's auto-numbered key; times are Unix milliseconds;
// hashes are lower-case hex.
const char* const schema[] = {
    R"(CREATE TABLE tws_meta (key TEXT PRIMARY KEY, value TEXT NOT NULL))",
    R"(CREATE TABLE users (
        id %ID%,
        name TEXT NOT NULL UNIQUE,
        password_hash TEXT NOT NULL,
        created_at BIGINT NOT NULL))",
    R"(CREATE TABLE tokens (
        id %ID%,
        user_id BIGINT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
        token_hash TEXT NOT NULL UNIQUE,
        label TEXT NOT NULL,
        created_at BIGINT NOT NULL,
        last_used_at BIGINT))",
    R"(CREATE INDEX tokens_user ON tokens(user_id))",
    // The newest version of each resource, one row per user and kind. Updating it
    // first locks the row, so concurrent writers of one resource, in any process,
    // take turns instead of colliding on a version number.
    R"(CREATE TABLE resource_heads (
        user_id BIGINT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
        kind TEXT NOT NULL,
        version BIGINT NOT NULL,
        PRIMARY KEY (user_id, kind)))",
    R"(CREATE TABLE resources (
        user_id BIGINT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
        kind TEXT NOT NULL,
        version BIGINT NOT NULL,
        body TEXT NOT NULL,
        created_at BIGINT NOT NULL,
        PRIMARY KEY (user_id, kind, version)))",
    R"(CREATE TABLE sessions (
        id_hash TEXT PRIMARY KEY,
        user_id BIGINT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
        csrf TEXT NOT NULL,
        created_at BIGINT NOT NULL,
        expires_at BIGINT NOT NULL))",
    R"(CREATE INDEX sessions_user ON sessions(user_id))",
    // One-time forms (connecting an app, making a token): using one deletes it, so
    // a replayed form finds nothing.
    R"(CREATE TABLE form_nonces (
        nonce_hash TEXT PRIMARY KEY,
        session_hash TEXT NOT NULL,
        purpose TEXT NOT NULL,
        expires_at BIGINT NOT NULL))",
};
} // namespace

QString ServerDatabase::defaultUrl()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return u"sqlite:" + base + QStringLiteral("/tidewell-server/server.sqlite");
}

std::unique_ptr<ServerDatabase> ServerDatabase::open(const Settings& settings, QString* error)
{
    std::unique_ptr<ServerDatabase> db;
    if (settings.url.startsWith(u"sqlite:"))
        db = SqliteDatabase::connect(settings, error);
    else if (settings.url.startsWith(u"postgresql://") || settings.url.startsWith(u"postgres://"))
        db = PostgresDatabase::connect(settings, error);
    else
        *error = QStringLiteral("unknown database URL (use sqlite:PATH or postgresql://...)");
    if (!db || !db->migrate(error))
        return nullptr;
    return db;
}

std::unique_ptr<ServerDatabase> ServerDatabase::join(const Settings& settings, QString* error)
{
    if (settings.url.startsWith(u"sqlite:"))
        return SqliteDatabase::connect(settings, error);
    return PostgresDatabase::attach(settings);
}

QDeadlineTimer ServerDatabase::deadline(int timeoutMs) const
{
    const QDeadlineTimer own(timeoutMs);
    return m_deadline.isForever() || own.deadlineNSecs() < m_deadline.deadlineNSecs() ? own
                                                                                      : m_deadline;
}

bool ServerDatabase::transact(const Work& work, QString* error)
{
    if (!begin(true)) {
        *error = QStringLiteral("cannot begin a transaction");
        return false;
    }
    if (!work(*this, error)) {
        rollback();
        return false;
    }
    if (!commit()) {
        *error = QStringLiteral("the transaction could not be committed");
        rollback();
        return false;
    }
    return true;
}

void ServerDatabase::noteFailure(bool uniqueViolation, const QString& why)
{
    m_uniqueViolation = uniqueViolation;
    if (!uniqueViolation) {
        ++m_storageFailures;
        m_lastFailure = why;
    }
}

bool ServerDatabase::migrate(QString* error)
{
    // One process at a time looks at the schema and creates it, so that several
    // servers started together on one database do not race.
    const bool sqlite = engine() == Engine::SQLite;
    if (!begin(true) ||
        (!sqlite && !exec(QStringLiteral("SELECT pg_advisory_xact_lock(7203)"), {}, error))) {
        if (error->isEmpty())
            *error = QStringLiteral("cannot lock the database to check its schema");
        rollback();
        return false;
    }
    const auto fail = [&](const QString& why) {
        *error = why;
        rollback();
        return false;
    };
    const auto exists = exec(
        sqlite ? QStringLiteral("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?")
               : QStringLiteral("SELECT 1 FROM information_schema.tables WHERE table_name = ? "
                                "AND table_schema = current_schema()"),
        {QStringLiteral("tws_meta")}, error);
    if (!exists)
        return fail(*error);
    if (!exists->rows.isEmpty()) {
        const auto q =
            exec(QStringLiteral("SELECT value FROM tws_meta WHERE key = 'schema'"), {}, error);
        if (!q)
            return fail(*error);
        rollback();
        const int version = q->rows.isEmpty() ? 0 : q->rows[0][0].toInt();
        if (version > SchemaVersion) {
            *error = QStringLiteral("the database was written by a newer tidewell-server "
                                    "(schema %1, this one reads %2)")
                         .arg(version)
                         .arg(SchemaVersion);
            return false;
        }
        if (version != SchemaVersion) {
            *error = QStringLiteral("unknown schema version %1").arg(version);
            return false;
        }
        return true;
    }
    const QString id = sqlite
                           ? QStringLiteral("INTEGER PRIMARY KEY AUTOINCREMENT")
                           : QStringLiteral("BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY");
    for (const char* statement : schema) {
        if (!exec(QString::fromUtf8(statement).replace(QStringLiteral("%ID%"), id), {}, error))
            return fail(*error);
    }
    if (!exec(QStringLiteral("INSERT INTO tws_meta (key, value) VALUES ('schema', ?)"),
              {QString::number(SchemaVersion)}, error))
        return fail(*error);
    if (!commit())
        return fail(QStringLiteral("the new schema could not be committed"));
    return true;
}
