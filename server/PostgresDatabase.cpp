#include "PostgresDatabase.h"

#include <libpq-fe.h>
#include <poll.h>

namespace {
// libpq's type numbers of the columns read as integers.
constexpr Oid int8Oid = 20, int2Oid = 21, int4Oid = 23;

QString trimmedMessage(const char* text)
{
    return QString::fromUtf8(text).trimmed();
}

// Waits until the socket can be read (or written, when `write`), or the deadline.
bool waitOn(int socket, bool write, const QDeadlineTimer& until)
{
    pollfd fd{socket, short(POLLIN | (write ? POLLOUT : 0)), 0};
    for (;;) {
        const qint64 left = until.remainingTime();
        if (left == 0)
            return false;
        const int n = ::poll(&fd, 1, int(std::min<qint64>(left, 60'000)));
        if (n > 0)
            return true;
        if (n < 0 && errno != EINTR)
            return false;
    }
}

bool cacheable(const QString& sql)
{
    for (const QLatin1StringView verb :
         {QLatin1StringView("SELECT"), QLatin1StringView("INSERT"), QLatin1StringView("UPDATE"),
          QLatin1StringView("DELETE")}) {
        if (sql.startsWith(verb))
            return true;
    }
    return false;
}

// What a statement's rows hold: integers as numbers, the rest as text.
void readRows(PGresult* r, ServerDatabase::Result* into)
{
    const int rows = PQntuples(r), columns = PQnfields(r);
    into->affected = QByteArray(PQcmdTuples(r)).toInt();
    into->rows.reserve(rows);
    for (int i = 0; i < rows; ++i) {
        QVariantList row;
        row.reserve(columns);
        for (int c = 0; c < columns; ++c) {
            if (PQgetisnull(r, i, c)) {
                row.append(QVariant());
                continue;
            }
            const QByteArray text(PQgetvalue(r, i, c), PQgetlength(r, i, c));
            const Oid type = PQftype(r, c);
            if (type == int8Oid || type == int4Oid || type == int2Oid)
                row.append(text.toLongLong());
            else
                row.append(text);
        }
        into->rows.append(std::move(row));
    }
}
} // namespace

PostgresDatabase::Parameters::Parameters(const QVariantList& values)
{
    storage.reserve(values.size());
    for (const QVariant& v : values) {
        if (v.isNull()) {
            pointers.append(nullptr);
            continue;
        }
        switch (v.typeId()) {
        case QMetaType::Bool:
            storage.append(v.toBool() ? "1" : "0");
            break;
        case QMetaType::QByteArray:
            storage.append(v.toByteArray());
            break;
        default:
            storage.append(v.toString().toUtf8());
        }
        pointers.append(storage.last().constData());
    }
}

QByteArray PostgresDatabase::numberedPlaceholders(const QString& sql)
{
    QByteArray out;
    const QByteArray in = sql.toUtf8();
    out.reserve(in.size() + 16);
    int n = 0;
    bool quoted = false;
    for (const char c : in) {
        if (c == '\'')
            quoted = !quoted;
        if (c == '?' && !quoted)
            out += '$' + QByteArray::number(++n);
        else
            out += c;
    }
    return out;
}

std::unique_ptr<PostgresDatabase> PostgresDatabase::connect(const Settings& settings,
                                                            QString* error)
{
    std::unique_ptr<PostgresDatabase> db(new PostgresDatabase(settings));
    if (!db->ensureConnected(error))
        return nullptr;
    return db;
}

std::unique_ptr<PostgresDatabase> PostgresDatabase::attach(const Settings& settings)
{
    return std::unique_ptr<PostgresDatabase>(new PostgresDatabase(settings));
}

PostgresDatabase::PostgresDatabase(Settings settings)
    : m_settings(std::move(settings))
{}

PostgresDatabase::~PostgresDatabase()
{
    drop();
}

void PostgresDatabase::drop()
{
    if (m_conn)
        PQfinish(m_conn);
    m_conn = nullptr;
    m_prepared.clear();
    m_inTransaction = false;
}

bool PostgresDatabase::ensureConnected(QString* error)
{
    // An idle connection has nothing to say; if it can be read, the server said
    // goodbye (a restart ends every connection with a message) or hung up. Noticed
    // now, it costs a reconnection instead of a failed request.
    if (m_conn && !m_inTransaction) {
        pollfd fd{PQsocket(m_conn), POLLIN, 0};
        if (::poll(&fd, 1, 0) != 0)
            drop();
    }
    if (m_conn && PQstatus(m_conn) == CONNECTION_OK)
        return true;
    drop();
    const QByteArray url = m_settings.url.toUtf8();
    const QByteArray password = m_settings.password.toUtf8();
    // The server also gives up on a statement by itself, and a connection whose
    // peer vanished is noticed by keep-alives rather than waited on forever.
    const QByteArray statementTimeout =
        "-c statement_timeout=" + QByteArray::number(m_settings.timeoutMs) +
        " -c idle_in_transaction_session_timeout=" + QByteArray::number(m_settings.timeoutMs * 4);
    const char* keys[] = {"dbname",
                          "password",
                          "keepalives",
                          "keepalives_idle",
                          "keepalives_interval",
                          "keepalives_count",
                          "tcp_user_timeout",
                          "application_name",
                          "options",
                          "client_encoding",
                          nullptr};
    const char* values[] = {url.constData(),
                            password.isEmpty() ? nullptr : password.constData(),
                            "1",
                            "10",
                            "5",
                            "3",
                            "5000",
                            "tidewell-server",
                            statementTimeout.constData(),
                            "UTF8",
                            nullptr};
    m_conn = PQconnectStartParams(keys, values, 1);
    const QDeadlineTimer until = deadline(m_settings.timeoutMs);
    PostgresPollingStatusType state = PGRES_POLLING_WRITING;
    while (m_conn && PQstatus(m_conn) != CONNECTION_BAD && state != PGRES_POLLING_OK &&
           state != PGRES_POLLING_FAILED) {
        if (!waitOn(PQsocket(m_conn), state == PGRES_POLLING_WRITING, until)) {
            *error =
                QStringLiteral("PostgreSQL did not answer within %1 ms").arg(m_settings.timeoutMs);
            drop();
            return false;
        }
        state = PQconnectPoll(m_conn);
    }
    if (!m_conn || PQstatus(m_conn) != CONNECTION_OK) {
        *error = m_conn ? trimmedMessage(PQerrorMessage(m_conn)) : QStringLiteral("out of memory");
        drop();
        return false;
    }
    PQsetnonblocking(m_conn, 1);
    return true;
}

std::optional<ServerDatabase::Result>
PostgresDatabase::exec(const QString& sql, const QVariantList& values, QString* error)
{
    m_uniqueViolation = false;
    QString why;
    const auto fail = [&](const QString& reason) -> std::optional<Result> {
        noteFailure(m_uniqueViolation, reason);
        if (error)
            *error = reason;
        return std::nullopt;
    };
    // Mid-transaction a lost connection cannot be replaced: the work is gone.
    if (m_inTransaction && (!m_conn || PQstatus(m_conn) != CONNECTION_OK)) {
        drop();
        return fail(QStringLiteral("the connection to PostgreSQL was lost"));
    }
    if (!ensureConnected(&why))
        return fail(why);
    const QDeadlineTimer until = deadline(m_settings.timeoutMs);
    const Parameters params(values);
    Result result;
    if (!send(sql, params, until, &why) || !awaitResults(until, &result, &why))
        return fail(why);
    return result;
}

bool PostgresDatabase::send(const QString& sql, const Parameters& params,
                            const QDeadlineTimer& until, QString* why)
{
    bool sent;
    if (cacheable(sql)) {
        QByteArray& name = m_prepared[sql];
        if (name.isEmpty()) {
            const QByteArray fresh = "tws" + QByteArray::number(m_nextStatement++);
            if (!PQsendPrepare(m_conn, fresh.constData(), numberedPlaceholders(sql).constData(),
                               int(params.pointers.size()), nullptr) ||
                !awaitResults(until, nullptr, why)) {
                m_prepared.remove(sql);
                if (why->isEmpty() && m_conn)
                    *why = trimmedMessage(PQerrorMessage(m_conn));
                return false;
            }
            name = fresh;
        }
        sent = PQsendQueryPrepared(m_conn, name.constData(), int(params.pointers.size()),
                                   params.pointers.data(), nullptr, nullptr, 0);
    } else {
        sent = PQsendQueryParams(m_conn, numberedPlaceholders(sql).constData(),
                                 int(params.pointers.size()), nullptr, params.pointers.data(),
                                 nullptr, nullptr, 0);
    }
    if (!sent) {
        *why = trimmedMessage(PQerrorMessage(m_conn));
        drop();
    }
    return sent;
}

bool PostgresDatabase::flush(const QDeadlineTimer& until, QString* why)
{
    for (;;) {
        const int flushed = PQflush(m_conn);
        if (flushed < 0) {
            *why = trimmedMessage(PQerrorMessage(m_conn));
            drop();
            return false;
        }
        if (flushed == 0 && !PQisBusy(m_conn))
            return true;
        if (!waitOn(PQsocket(m_conn), flushed == 1, until)) {
            *why =
                QStringLiteral("PostgreSQL did not answer within %1 ms").arg(m_settings.timeoutMs);
            drop();
            return false;
        }
        if (!PQconsumeInput(m_conn)) {
            *why = trimmedMessage(PQerrorMessage(m_conn));
            drop();
            return false;
        }
    }
}

bool PostgresDatabase::awaitResults(const QDeadlineTimer& until, Result* into, QString* why)
{
    bool ok = true;
    for (;;) {
        if (!flush(until, why))
            return false;
        PGresult* r = PQgetResult(m_conn);
        if (!r)
            return ok;
        const ExecStatusType status = PQresultStatus(r);
        if (status == PGRES_FATAL_ERROR || status == PGRES_NONFATAL_ERROR ||
            status == PGRES_BAD_RESPONSE) {
            if (ok) {
                const char* state = PQresultErrorField(r, PG_DIAG_SQLSTATE);
                m_uniqueViolation = state && qstrcmp(state, "23505") == 0;
                *why = trimmedMessage(PQresultErrorMessage(r));
            }
            ok = false;
        } else if (into) {
            readRows(r, into);
        }
        PQclear(r);
    }
}

bool PostgresDatabase::run(const char* sql, QString* error)
{
    return exec(QString::fromLatin1(sql), {}, error).has_value();
}

bool PostgresDatabase::begin(bool)
{
    m_inTransaction = run("BEGIN");
    return m_inTransaction;
}

bool PostgresDatabase::commit()
{
    const auto done = exec(QStringLiteral("COMMIT"));
    m_inTransaction = false;
    return done.has_value();
}

void PostgresDatabase::rollback()
{
    if (m_inTransaction && m_conn)
        run("ROLLBACK");
    m_inTransaction = false;
}
