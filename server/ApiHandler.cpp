#include "ApiHandler.h"

#include "Accounts.h"
#include "ResourceStore.h"
#include "ServerDatabase.h"
#include "WireEnvelope.h"

namespace {
const QString apiPrefix = QStringLiteral("/api/v1/");

// The request body as stored: what the app's decoders read, written back by its
// encoders, so a GET answers exactly what the app decodes. Absent, with the
// decoder's reason, when the body is not such a resource.
std::optional<QByteArray> canonical(ResourceStore::Kind kind, const QByteArray& body,
                                    QString* error)
{
    switch (kind) {
    case ResourceStore::Kind::Habits:
        if (const auto habits = WireEnvelope::decodeHabitsBody(body, error))
            return WireEnvelope::encode(*habits);
        return std::nullopt;
    case ResourceStore::Kind::Tasks:
        if (const auto lists = WireEnvelope::decodeTasksBody(body, error))
            return WireEnvelope::encode(*lists);
        return std::nullopt;
    case ResourceStore::Kind::Pomodoro:
        break;
    }
    if (const auto state = WireEnvelope::decodePomodoroBody(body, error))
        return WireEnvelope::encode(*state);
    return std::nullopt;
}

// "Bearer <token>"; empty when the header is missing or of another scheme.
QByteArray bearerToken(const HttpCall& call)
{
    const QByteArray header = call.header("Authorization").trimmed();
    if (header.size() < 7 || header.left(7).compare("Bearer ", Qt::CaseInsensitive) != 0)
        return {};
    return header.mid(7).trimmed();
}

HttpAnswer unauthorized()
{
    HttpAnswer answer = HttpAnswer::error(401, QStringLiteral("missing, unknown or revoked token"));
    answer.addHeader("WWW-Authenticate", "Bearer");
    return answer;
}

HttpAnswer notAllowed(const QByteArray& allowed)
{
    HttpAnswer answer = HttpAnswer::error(405, QStringLiteral("method not allowed"));
    answer.addHeader("Allow", allowed);
    return answer;
}

HttpAnswer databaseDown()
{
    return HttpAnswer::unavailable(
        QStringLiteral("the database is not available; try again shortly"));
}
} // namespace

ApiHandler::ApiHandler(ServerDatabase& db, Accounts& accounts, ResourceStore& resources)
    : m_db(db)
    , m_accounts(accounts)
    , m_resources(resources)
{}

bool ApiHandler::handles(const QString& path)
{
    return path == u"/healthz" || path.startsWith(apiPrefix);
}

HttpAnswer ApiHandler::handle(const HttpCall& call)
{
    if (call.path == u"/healthz") {
        if (call.method != "GET" && call.method != "HEAD")
            return notAllowed("GET, HEAD");
        if (!m_db.exec(QStringLiteral("SELECT 1")))
            return databaseDown();
        return HttpAnswer::json(200, QByteArrayLiteral("{\"ok\":true}"));
    }
    const QString name = call.path.mid(apiPrefix.size());
    if (!ResourceStore::kindNamed(name))
        return HttpAnswer::error(404, QStringLiteral("no such resource"));
    return resource(call, name);
}

HttpAnswer ApiHandler::resource(const HttpCall& call, const QString& name)
{
    const ResourceStore::Kind kind = *ResourceStore::kindNamed(name);
    if (call.method != "GET" && call.method != "PUT")
        return notAllowed("GET, PUT");
    const QByteArray token = bearerToken(call);
    if (call.method == "GET")
        return get(token, kind);

    // An outage is never an answer about the token: the app would sign out.
    const Lookup<qint64> user = m_accounts.authenticate(token);
    if (user.unavailable)
        return databaseDown();
    if (!user)
        return unauthorized();
    const QByteArray type = call.header("Content-Type");
    if (!type.isEmpty() && !type.trimmed().toLower().startsWith("application/json"))
        return HttpAnswer::error(415, QStringLiteral("the body must be application/json"));
    QString error;
    const std::optional<QByteArray> body = canonical(kind, call.body, &error);
    if (!body)
        return HttpAnswer::error(400, error.left(300));
    if (!m_resources.put(*user, kind, *body, &error))
        return databaseDown();
    return HttpAnswer::json(200, WireEnvelope::okReply());
}

HttpAnswer ApiHandler::get(const QByteArray& token, ResourceStore::Kind kind)
{
    if (!Accounts::plausibleToken(token))
        return unauthorized();
    const Lookup<ResourceStore::Owned> found =
        m_resources.currentByToken(Accounts::hashOf(token), kind);
    if (found.unavailable)
        return databaseDown();
    if (!found)
        return unauthorized();
    m_accounts.noteUse(found->tokenId, found->lastUsed);
    const QByteArray none = kind == ResourceStore::Kind::Pomodoro ? "null" : "[]";
    return HttpAnswer::json(200, "{\"data\":" + found->body.value_or(none) + '}');
}
