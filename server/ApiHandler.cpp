#include "ApiHandler.h"

#include "Accounts.h"
#include "ChangeFeed.h"
#include "ResourceStore.h"
#include "ServerDatabase.h"
#include "WireEnvelope.h"

#include <QLocale>

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

QByteArray etagOf(qint64 version)
{
    return '"' + QByteArray::number(version) + '"';
}

// Whether an If-Match / If-None-Match list names the current version: "*" names
// any stored one; weak tags compare by their value, as for If-None-Match.
bool listNames(const QByteArray& header, qint64 current)
{
    for (const QByteArray& item : header.split(',')) {
        QByteArray tag = item.trimmed();
        if (tag == "*")
            return current > 0;
        if (tag.startsWith("W/"))
            tag = tag.mid(2);
        if (tag == etagOf(current))
            return true;
    }
    return false;
}

// The version an If-Match names, when it names exactly one; "*" is any stored
// one, which the caller reads as the current version. Absent for anything else,
// which matches no version.
std::optional<qint64> versionNamed(const QByteArray& header)
{
    const QByteArray tag = header.trimmed();
    if (tag.size() < 3 || !tag.startsWith('"') || !tag.endsWith('"'))
        return std::nullopt;
    bool ok = false;
    const qint64 version = tag.mid(1, tag.size() - 2).toLongLong(&ok);
    if (!ok || version < 0)
        return std::nullopt;
    return version;
}

HttpAnswer stale(qint64 current)
{
    HttpAnswer answer = HttpAnswer::error(
        412, QStringLiteral("the resource changed since the version this change was made on"));
    answer.addHeader("ETag", etagOf(current));
    return answer;
}

HttpAnswer databaseDown()
{
    return HttpAnswer::unavailable(
        QStringLiteral("the database is not available; try again shortly"));
}
} // namespace

ApiHandler::ApiHandler(ServerDatabase& db, Accounts& accounts, ResourceStore& resources,
                       ChangeFeed& feed)
    : m_db(db)
    , m_accounts(accounts)
    , m_resources(resources)
    , m_feed(feed)
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
    if (name == u"changes")
        return changes(call);
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
        return get(call, token, kind);

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
    std::optional<qint64> ifVersion;
    if (!call.header("If-Match").isNull()) {
        // "*" or a list is rare from a client: settle it against the current
        // version first; a single tag is compared inside the write itself.
        const QByteArray condition = call.header("If-Match");
        ifVersion = versionNamed(condition);
        if (!ifVersion) {
            const std::optional<qint64> current = m_resources.currentVersion(*user, kind, &error);
            if (!current)
                return databaseDown();
            if (!listNames(condition, *current))
                return stale(*current);
            ifVersion = *current;
        }
    }
    const std::optional<ResourceStore::Written> written =
        m_resources.put(*user, kind, *body, &error, ifVersion);
    if (!written)
        return databaseDown();
    if (written->stale)
        return stale(written->version);
    m_feed.changed(*user, int(kind), written->version);
    HttpAnswer answer = HttpAnswer::json(200, WireEnvelope::okReply());
    answer.addHeader("ETag", etagOf(written->version));
    return answer;
}

HttpAnswer ApiHandler::get(const HttpCall& call, const QByteArray& token, ResourceStore::Kind kind)
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
    const QByteArray tag = etagOf(found->version);
    if (!call.header("If-None-Match").isNull() &&
        listNames(call.header("If-None-Match"), found->version)) {
        HttpAnswer answer{304, {}, {}, {}, {}};
        answer.addHeader("ETag", tag);
        return answer;
    }
    const QByteArray none = kind == ResourceStore::Kind::Pomodoro ? "null" : "[]";
    HttpAnswer answer = HttpAnswer::json(200, "{\"data\":" + found->body.value_or(none) + '}');
    answer.addHeader("ETag", tag);
    // When the copy was stored: a client merging it learns which changes came later.
    if (found->storedAt.isValid())
        answer.addHeader("Last-Modified",
                         QLocale::c()
                             .toString(found->storedAt.toUTC(), u"ddd, dd MMM yyyy hh:mm:ss 'GMT'")
                             .toLatin1());
    return answer;
}

HttpAnswer ApiHandler::changes(const HttpCall& call)
{
    if (call.method != "GET")
        return notAllowed("GET");
    ChangeFeed::Versions known{};
    for (int k = 0; k < int(known.size()); ++k) {
        const QString name = ResourceStore::nameOf(ResourceStore::Kind(k));
        bool ok = false;
        known[k] = call.query.queryItemValue(name).toLongLong(&ok);
        if (!ok || known[k] < 0)
            return HttpAnswer::error(400, QStringLiteral("changes takes the version of each "
                                                         "resource the app has: "
                                                         "habits=V&tasks=V&pomodoro=V"));
    }
    const QByteArray token = bearerToken(call);
    if (!Accounts::plausibleToken(token))
        return unauthorized();
    const Lookup<ResourceStore::OwnedVersions> found =
        m_resources.versionsByToken(Accounts::hashOf(token));
    if (found.unavailable)
        return databaseDown();
    if (!found)
        return unauthorized();
    m_accounts.noteUse(found->tokenId, found->lastUsed);
    // Any difference is news, a version the server does not have (it was reset
    // or restored) as much as a newer one.
    if (found->versions != known)
        return ChangeFeed::moved(found->versions);
    HttpAnswer later;
    later.later = [feed = &m_feed, user = found->userId,
                   versions = found->versions](std::function<void(HttpAnswer)> reply) {
        feed->wait(user, versions, std::move(reply));
    };
    return later;
}
