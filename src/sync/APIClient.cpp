#include "APIClient.h"

#include "Blanks.h"
#include "BundleInfo.h"
#include "KeychainStore.h"
#include "ModuleLoader.h"
#include "Preferences.h"
#include "WireEnvelope.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QStringDecoder>

#include <algorithm>

namespace {
constexpr qsizetype readableBodyLength = 200;

int portOf(const QUrl& u)
{
    return u.port(u.scheme() == u"https" ? 443 : 80);
}

std::optional<QString> utf8(const QByteArray& bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}
} // namespace

APIClient::APIClient(const KeychainStore& keychain, const ModuleLoader& modules,
                     HttpTransport* transport, QObject* parent)
    : QObject(parent)
    , m_keychain(keychain)
    , m_modules(modules)
    , m_transport(transport)
    , m_transportTried(transport != nullptr)
{}

QString APIClient::defaultServerURL()
{
    static const QString url = [] {
        const QString bundled = BundleInfo::current().defaultServerURL;
        return bundled.isEmpty() ? QStringLiteral("http://localhost:3000") : bundled;
    }();
    return url;
}

QString APIClient::serverURLString()
{
    const QString stored = Preferences::serverURLOverride();
    if (!Blanks::trimmed(stored).isEmpty())
        return stored;
    return defaultServerURL();
}

QUrl APIClient::joined(const QUrl& base, const QString& path)
{
    QString basePath = base.path(QUrl::FullyEncoded);
    while (basePath.endsWith(u'/'))
        basePath.chop(1);
    QString tail = path;
    while (tail.startsWith(u'/'))
        tail.remove(0, 1);
    QUrl url = base;
    url.setPath(basePath + u'/' + tail, QUrl::TolerantMode);
    return url;
}

bool APIClient::mayFollow(const QUrl& from, const QUrl& to)
{
    if (!to.isValid() || from.host().compare(to.host(), Qt::CaseInsensitive) != 0)
        return false;
    if (from.scheme() == to.scheme())
        return portOf(from) == portOf(to);
    // An upgrade to TLS on the same host, as servers behind a proxy often ask for;
    // never the other way.
    return from.scheme() == u"http" && to.scheme() == u"https" &&
           (portOf(to) == 443 || portOf(to) == portOf(from));
}

QString APIClient::readableBody(const QString& body)
{
    QString line = body.simplified();
    if (line.size() > readableBodyLength)
        line = line.left(readableBodyLength) + u'…';
    return line;
}

bool APIClient::isSendable(const QString& token)
{
    return std::all_of(token.cbegin(), token.cend(),
                       [](QChar c) { return c.unicode() > 0x20 && c.unicode() < 0x7f; });
}

APIResult<HttpRequest> APIClient::makeRequest(const QString& path) const
{
    const std::optional<QString> token = m_keychain.cachedToken();
    // A token that could not travel in a header is never put in one.
    if (!token || token->isEmpty() || !isSendable(*token))
        return APIError::notSignedIn();
    const QUrl base(serverURLString(), QUrl::StrictMode);
    if (!base.isValid() || base.isRelative() || base.host().isEmpty())
        return APIError::transport(QStringLiteral("Invalid server address"));
    HttpRequest request;
    // A query (the change feed's versions) goes after the joined path.
    const qsizetype question = path.indexOf(u'?');
    request.url = joined(base, path.left(question));
    if (question >= 0)
        request.url.setQuery(path.mid(question + 1));
    request.headers = {{"Authorization", "Bearer " + token->toUtf8()},
                       {"Accept", "application/json"}};
    request.maxReplySize = MaxReplySize;
    return request;
}

HttpTransport* APIClient::transport(QString* why)
{
    if (!m_transportTried) {
        m_transportTried = true;
        m_transport = qobject_cast<HttpTransport*>(
            m_modules.load(QStringLiteral("tidewell_network"), &m_transportMissing));
        if (!m_transport)
            qWarning("APIClient: no network module (%s)", qPrintable(m_transportMissing));
    }
    *why = m_transportMissing;
    return m_transport;
}

QCoro::Task<APIResult<APIClient::Tagged>> APIClient::send(QByteArray method, QString path,
                                                          QByteArray body, QObject* scope,
                                                          HttpRequest::Headers extra,
                                                          std::chrono::milliseconds patience)
{
    APIResult<HttpRequest> built = makeRequest(path);
    if (!built)
        co_return built.error();
    QString missing;
    HttpTransport* http = transport(&missing);
    if (!http)
        co_return APIError::transport(QStringLiteral("Network support is missing: ") + missing);
    HttpRequest request = built.value();
    request.method = method;
    request.body = body;
    request.transferTimeout = patience.count() > 0 ? patience : m_timeout;
    request.headers += extra;
    QDeadlineTimer overall(patience.count() > 0 ? patience : m_deadline);
    if (!body.isNull())
        request.headers.append(
            std::pair<QByteArray, QByteArray>("Content-Type", "application/json"));
    QPointer<QObject> guard(scope);
    const bool scoped = scope != nullptr;

    for (int hop = 0;; ++hop) {
        if (scoped && !guard)
            co_return APIError::transport(QStringLiteral("Operation canceled"));
        request.deadline = std::chrono::milliseconds(std::max<qint64>(overall.remainingTime(), 1));
        const HttpReply reply = co_await http->send(request, guard);
        if (reply.tooLarge)
            co_return APIError::transport(QStringLiteral("Reply larger than 32 MiB"));
        if (reply.failure)
            co_return APIError::transport(*reply.failure);
        if (reply.status == 0)
            co_return APIError::http(0, QStringLiteral("Invalid response"));
        const int status = reply.status;

        if (status >= 300 && status < 400 && reply.location) {
            const QUrl target =
                request.url.resolved(QUrl::fromEncoded(*reply.location, QUrl::StrictMode));
            // The token goes to the server it was meant for and nowhere else.
            if (!mayFollow(request.url, target))
                co_return APIError::transport(QStringLiteral("Redirect to another host refused"));
            if (hop >= MaxRedirects)
                co_return APIError::transport(QStringLiteral("Too many redirects"));
            request.url = target;
            if (status == 303) {
                request.method = "GET";
                request.body = QByteArray();
                request.headers.removeIf(
                    [](const auto& header) { return header.first == "Content-Type"; });
            }
            continue;
        }
        if (status == 401)
            co_return APIError::unauthorized();
        if (status < 200 || status > 299) {
            const std::optional<QString> body = utf8(reply.body);
            co_return APIError::http(status, body ? std::optional(readableBody(*body)) : body);
        }
        co_return Tagged{reply.body, reply.etag, reply.lastModified};
    }
}

QCoro::Task<APIResult<QList<WireTaskList>>> APIClient::getTasks(QObject* scope)
{
    const auto body = co_await fetch(QStringLiteral("tasks"), scope);
    if (!body)
        co_return body.error();
    QString why;
    auto lists = WireEnvelope::decodeTasks(body.value().body, &why);
    if (!lists)
        co_return APIError::decoding(why);
    co_return std::move(*lists);
}

QCoro::Task<APIResult<QList<WireHabit>>> APIClient::getHabits(QObject* scope)
{
    const auto body = co_await fetch(QStringLiteral("habits"), scope);
    if (!body)
        co_return body.error();
    QString why;
    auto habits = WireEnvelope::decodeHabits(body.value().body, &why);
    if (!habits)
        co_return APIError::decoding(why);
    co_return std::move(*habits);
}

QCoro::Task<APIResult<std::optional<PomodoroState>>> APIClient::getPomodoro(QObject* scope)
{
    const auto body = co_await fetch(QStringLiteral("pomodoro"), scope);
    if (!body)
        co_return body.error();
    QString why;
    std::optional<PomodoroState> state;
    if (!WireEnvelope::decodePomodoro(body.value().body, &state, &why))
        co_return APIError::decoding(why);
    co_return state;
}

QCoro::Task<std::optional<APIError>> APIClient::put(QString path, QByteArray body)
{
    const auto reply = co_await send("PUT", path, body, nullptr);
    if (!reply)
        co_return reply.error();
    QString why;
    if (!WireEnvelope::decodeOk(reply.value().body, &why))
        co_return APIError::decoding(why);
    co_return std::nullopt;
}

QCoro::Task<std::optional<APIError>> APIClient::putTasks(QList<WireTaskList> lists)
{
    co_return co_await put(QStringLiteral("/api/v1/tasks"), WireEnvelope::encode(lists));
}

QCoro::Task<std::optional<APIError>> APIClient::putHabits(QList<WireHabit> habits)
{
    co_return co_await put(QStringLiteral("/api/v1/habits"), WireEnvelope::encode(habits));
}

QCoro::Task<std::optional<APIError>> APIClient::putPomodoro(PomodoroState state)
{
    co_return co_await put(QStringLiteral("/api/v1/pomodoro"), WireEnvelope::encode(state));
}

QCoro::Task<APIResult<APIClient::Tagged>> APIClient::fetch(QString resource, QObject* scope)
{
    co_return co_await send("GET", QStringLiteral("/api/v1/") + resource, QByteArray(), scope);
}

QCoro::Task<APIResult<APIClient::Tagged>> APIClient::store(QString resource, QByteArray body,
                                                           std::optional<qint64> ifMatch)
{
    HttpRequest::Headers conditional;
    if (ifMatch)
        conditional.append(
            {QByteArrayLiteral("If-Match"), '"' + QByteArray::number(*ifMatch) + '"'});
    auto reply =
        co_await send("PUT", QStringLiteral("/api/v1/") + resource, body, nullptr, conditional);
    if (!reply)
        co_return reply.error();
    QString why;
    if (!WireEnvelope::decodeOk(reply.value().body, &why))
        co_return APIError::decoding(why);
    co_return reply;
}

QCoro::Task<APIResult<std::optional<APIClient::Versions>>> APIClient::changes(Versions known,
                                                                              QObject* scope)
{
    QStringList query;
    for (auto it = known.cbegin(); it != known.cend(); ++it)
        query.append(it.key() + u'=' + QString::number(it.value()));
    // The server holds the request up to a minute before it answers 304.
    constexpr std::chrono::milliseconds patience{90'000};
    const auto reply = co_await send("GET", QStringLiteral("/api/v1/changes?") + query.join(u'&'),
                                     QByteArray(), scope, {}, patience);
    if (!reply) {
        if (reply.error().kind() == APIError::Kind::Http && reply.error().status() == 304)
            co_return std::optional<Versions>();
        co_return reply.error();
    }
    const QJsonDocument doc = QJsonDocument::fromJson(reply.value().body);
    if (!doc.isObject())
        co_return APIError::decoding(QStringLiteral("The change feed's answer is not an object"));
    Versions versions;
    const QJsonObject object = doc.object();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        if (!it.value().isDouble())
            co_return APIError::decoding(
                QStringLiteral("The change feed's versions are not numbers"));
        versions.insert(it.key(), qint64(it.value().toDouble()));
    }
    co_return std::optional(versions);
}

std::optional<qint64> APIClient::versionOf(const std::optional<QByteArray>& etag)
{
    if (!etag || etag->size() < 3 || !etag->startsWith('"') || !etag->endsWith('"'))
        return std::nullopt;
    const QByteArray digits = etag->mid(1, etag->size() - 2);
    if (!std::all_of(digits.cbegin(), digits.cend(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    bool ok = false;
    const qint64 version = digits.toLongLong(&ok);
    return ok ? std::optional(version) : std::nullopt;
}
