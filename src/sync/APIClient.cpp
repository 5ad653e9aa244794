#include "APIClient.h"

#include "Blanks.h"
#include "BundleInfo.h"
#include "KeychainStore.h"
#include "ModuleLoader.h"
#include "Preferences.h"
#include "WireEnvelope.h"

#include <QPointer>
#include <QStringDecoder>

namespace {
bool sameOrigin(const QUrl& a, const QUrl& b)
{
    auto defaultPort = [](const QUrl& u) { return u.scheme() == u"https" ? 443 : 80; };
    return a.scheme() == b.scheme() && a.host().compare(b.host(), Qt::CaseInsensitive) == 0 &&
           a.port(defaultPort(a)) == b.port(defaultPort(b));
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

APIClient& APIClient::shared()
{
    static APIClient* instance = new APIClient;
    return *instance;
}

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

APIResult<HttpRequest> APIClient::makeRequest(const QString& path)
{
    const std::optional<QString> token = KeychainStore::loadToken();
    if (!token || token->isEmpty())
        return APIError::notSignedIn();
    const QUrl base(serverURLString(), QUrl::StrictMode);
    if (!base.isValid() || base.isRelative() || base.host().isEmpty())
        return APIError::transport(QStringLiteral("Invalid server address"));
    HttpRequest request;
    request.url = joined(base, path);
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
            ModuleLoader::load(QStringLiteral("tidewell_network"), &m_transportMissing));
        if (!m_transport)
            qWarning("APIClient: no network module (%s)", qPrintable(m_transportMissing));
    }
    *why = m_transportMissing;
    return m_transport;
}

QCoro::Task<APIResult<QByteArray>> APIClient::send(QByteArray method, QString path, QByteArray body,
                                                   QObject* scope)
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
    request.transferTimeout = m_timeout;
    if (!body.isNull())
        request.headers.append(
            std::pair<QByteArray, QByteArray>("Content-Type", "application/json"));
    QPointer<QObject> guard(scope);
    const bool scoped = scope != nullptr;

    for (int hop = 0;; ++hop) {
        if (scoped && !guard)
            co_return APIError::transport(QStringLiteral("Operation canceled"));
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
            if (!target.isValid() || !sameOrigin(target, request.url))
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
        if (status < 200 || status > 299)
            co_return APIError::http(status, utf8(reply.body));
        co_return reply.body;
    }
}

QCoro::Task<APIResult<QList<WireTaskList>>> APIClient::getTasks(QObject* scope)
{
    const APIResult<QByteArray> body =
        co_await send("GET", QStringLiteral("/api/v1/tasks"), QByteArray(), scope);
    if (!body)
        co_return body.error();
    QString why;
    auto lists = WireEnvelope::decodeTasks(body.value(), &why);
    if (!lists)
        co_return APIError::decoding(why);
    co_return std::move(*lists);
}

QCoro::Task<APIResult<QList<WireHabit>>> APIClient::getHabits(QObject* scope)
{
    const APIResult<QByteArray> body =
        co_await send("GET", QStringLiteral("/api/v1/habits"), QByteArray(), scope);
    if (!body)
        co_return body.error();
    QString why;
    auto habits = WireEnvelope::decodeHabits(body.value(), &why);
    if (!habits)
        co_return APIError::decoding(why);
    co_return std::move(*habits);
}

QCoro::Task<APIResult<std::optional<PomodoroState>>> APIClient::getPomodoro(QObject* scope)
{
    const APIResult<QByteArray> body =
        co_await send("GET", QStringLiteral("/api/v1/pomodoro"), QByteArray(), scope);
    if (!body)
        co_return body.error();
    QString why;
    std::optional<PomodoroState> state;
    if (!WireEnvelope::decodePomodoro(body.value(), &state, &why))
        co_return APIError::decoding(why);
    co_return state;
}

QCoro::Task<std::optional<APIError>> APIClient::put(QString path, QByteArray body)
{
    const APIResult<QByteArray> reply = co_await send("PUT", path, body, nullptr);
    if (!reply)
        co_return reply.error();
    QString why;
    if (!WireEnvelope::decodeOk(reply.value(), &why))
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
