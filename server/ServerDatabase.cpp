#include "ServerDatabase.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStandardPaths>
#include <QUrl>
#include <QUrlQuery>

#include <atomic>

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
    // One-time forms (connecting an app): using one deletes it, so a replayed
    // form finds nothing.
    R"(CREATE TABLE form_nonces (
        nonce_hash TEXT PRIMARY KEY,
        session_hash TEXT NOT NULL,
        purpose TEXT NOT NULL,
        expires_at BIGINT NOT NULL))",
};

QString errorOf(const QSqlError& error)
{
    const QString text = error.databaseText().isEmpty() ? error.text() : error.databaseText();
    return text.trimmed();
}

// Builds the PostgreSQL connection from a libpq-style URL.
bool configurePostgres(QSqlDatabase& db, const QUrl& url, QString* error)
{
    const QUrlQuery query(url);
    QString database = url.path();
    while (database.startsWith(u'/'))
        database.remove(0, 1);
    if (database.isEmpty()) {
        *error = QStringLiteral("the PostgreSQL URL names no database");
        return false;
    }
    db.setDatabaseName(database);
    db.setUserName(url.userName());
    db.setPassword(url.password());
    // A folder as host is where the server's Unix socket lives.
    const QString host = query.hasQueryItem(QStringLiteral("host"))
                             ? query.queryItemValue(QStringLiteral("host"))
                             : url.host();
    if (!host.isEmpty())
        db.setHostName(host);
    if (url.port() > 0)
        db.setPort(url.port());
    return true;
}
} // namespace

QString ServerDatabase::defaultUrl()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return u"sqlite:" + base + QStringLiteral("/tidewell-server/server.sqlite");
}

std::unique_ptr<ServerDatabase> ServerDatabase::open(const QString& url, QString* error)
{
    static std::atomic<int> counter{0};
    const QString connection = QStringLiteral("tws-%1").arg(counter++);
    std::unique_ptr<ServerDatabase> out;

    if (url.startsWith(u"sqlite:")) {
        const QString path = url.mid(7);
        if (path.isEmpty()) {
            *error = QStringLiteral("the SQLite URL names no file");
            return nullptr;
        }
        if (path != u":memory:")
            QDir().mkpath(QFileInfo(path).absolutePath());
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(path);
        // Other processes may write the same file; wait for them rather than fail.
        db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000"));
        out.reset(new ServerDatabase(Engine::SQLite, connection));
    } else if (url.startsWith(u"postgresql://") || url.startsWith(u"postgres://")) {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), connection);
        out.reset(new ServerDatabase(Engine::PostgreSQL, connection));
        if (!db.isValid()) {
            *error = QStringLiteral("the PostgreSQL driver (libqt6sql6-psql) is not installed");
            return nullptr;
        }
        if (!configurePostgres(db, QUrl(url), error))
            return nullptr;
    } else {
        *error = QStringLiteral("unknown database URL (use sqlite:PATH or postgresql://...)");
        return nullptr;
    }

    QSqlDatabase db = QSqlDatabase::database(connection, false);
    if (!db.open()) {
        *error = errorOf(db.lastError());
        return nullptr;
    }
    if (out->m_engine == Engine::SQLite) {
        for (const char* pragma : {"PRAGMA foreign_keys = ON", "PRAGMA journal_mode = WAL",
                                   "PRAGMA synchronous = FULL"}) {
            QSqlQuery q(db);
            if (!q.exec(QString::fromLatin1(pragma))) {
                *error = errorOf(q.lastError());
                return nullptr;
            }
        }
    }
    if (!out->migrate(error))
        return nullptr;
    return out;
}

ServerDatabase::ServerDatabase(Engine engine, QString connection)
    : m_engine(engine)
    , m_connection(std::move(connection))
{}

ServerDatabase::~ServerDatabase()
{
    qDeleteAll(m_statements);
    {
        QSqlDatabase db = QSqlDatabase::database(m_connection, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
}

std::optional<ServerDatabase::Result>
ServerDatabase::exec(const QString& sql, const QVariantList& values, QString* error)
{
    QSqlQuery*& query = m_statements[sql];
    if (!query) {
        query = new QSqlQuery(QSqlDatabase::database(m_connection, false));
        query->setForwardOnly(true);
        if (!query->prepare(sql)) {
            if (error)
                *error = errorOf(query->lastError());
            delete query;
            m_statements.remove(sql);
            return std::nullopt;
        }
    }
    for (qsizetype i = 0; i < values.size(); ++i)
        query->bindValue(int(i), values.at(i));
    m_uniqueViolation = false;
    if (query->exec()) {
        Result result;
        result.affected = query->numRowsAffected();
        const int columns = query->record().count();
        while (query->next()) {
            QVariantList row;
            row.reserve(columns);
            for (int i = 0; i < columns; ++i)
                row.append(query->value(i));
            result.rows.append(std::move(row));
        }
        query->finish();
        return result;
    }
    const QSqlError failure = query->lastError();
    // SQLite: SQLITE_CONSTRAINT_UNIQUE / _PRIMARYKEY; PostgreSQL: unique_violation.
    const QString code = failure.nativeErrorCode();
    m_uniqueViolation = code == u"2067" || code == u"1555" || code == u"23505" ||
                        failure.databaseText().contains(u"UNIQUE constraint failed");
    query->finish();
    if (error)
        *error = errorOf(failure);
    return std::nullopt;
}

bool ServerDatabase::begin()
{
    return QSqlDatabase::database(m_connection, false).transaction();
}

bool ServerDatabase::commit()
{
    return QSqlDatabase::database(m_connection, false).commit();
}

void ServerDatabase::rollback()
{
    QSqlDatabase::database(m_connection, false).rollback();
}

bool ServerDatabase::migrate(QString* error)
{
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    // One process at a time looks at the schema and creates it, so that several
    // servers started together on one database do not race.
    QSqlQuery lock(db);
    const bool locked = m_engine == Engine::SQLite
                            ? lock.exec(QStringLiteral("BEGIN IMMEDIATE"))
                            : lock.exec(QStringLiteral("BEGIN")) &&
                                  lock.exec(QStringLiteral("SELECT pg_advisory_xact_lock(7203)"));
    if (!locked) {
        *error = errorOf(lock.lastError());
        return false;
    }
    auto fail = [&](const QString& why) {
        *error = why;
        QSqlQuery(db).exec(QStringLiteral("ROLLBACK"));
        return false;
    };
    if (db.tables().contains(QStringLiteral("tws_meta"))) {
        QSqlQuery q(db);
        if (!q.exec(QStringLiteral("SELECT value FROM tws_meta WHERE key = 'schema'")))
            return fail(errorOf(q.lastError()));
        const int version = q.next() ? q.value(0).toInt() : 0;
        q.finish();
        QSqlQuery(db).exec(QStringLiteral("ROLLBACK"));
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
    const QString id = m_engine == Engine::SQLite
                           ? QStringLiteral("INTEGER PRIMARY KEY AUTOINCREMENT")
                           : QStringLiteral("BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY");
    for (const char* statement : schema) {
        QSqlQuery q(db);
        if (!q.exec(QString::fromUtf8(statement).replace(QStringLiteral("%ID%"), id)))
            return fail(errorOf(q.lastError()));
    }
    QSqlQuery version(db);
    if (!version.exec(QStringLiteral("INSERT INTO tws_meta (key, value) VALUES ('schema', '%1')")
                          .arg(SchemaVersion)))
        return fail(errorOf(version.lastError()));
    QSqlQuery done(db);
    if (!done.exec(QStringLiteral("COMMIT")))
        return fail(errorOf(done.lastError()));
    return true;
}
