#include "APIClient.h"

#include "Blanks.h"
#include "BundleInfo.h"
#include "KeychainStore.h"
#include "Preferences.h"
#include "WireEnvelope.h"

#include <QCoro/QCoroNetworkReply>
#include <QPointer>
#include <QStringDecoder>

#include <memory>

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

struct ReplyDeleter
{
    void operator()(QNetworkReply* reply) const
    {
        reply->disconnect();
        reply->deleteLater();
    }
};
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

APIResult<QNetworkRequest> APIClient::makeRequest(const QString& path)
{
    const std::optional<QString> token = KeychainStore::loadToken();
    if (!token || token->isEmpty())
        return APIError::notSignedIn();
    const QUrl base(serverURLString(), QUrl::StrictMode);
    if (!base.isValid() || base.isRelative() || base.host().isEmpty())
        return APIError::transport(QStringLiteral("Invalid server address"));
    QNetworkRequest request(joined(base, path));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setRawHeader("Authorization", "Bearer " + token->toUtf8());
    request.setRawHeader("Accept", "application/json");
    return request;
}

QCoro::Task<APIResult<QByteArray>> APIClient::send(QByteArray method, QString path, QByteArray body,
                                                   QObject* scope)
{
    APIResult<QNetworkRequest> built = makeRequest(path);
    if (!built)
        co_return built.error();
    QNetworkRequest request = built.value();
    request.setTransferTimeout(int(m_timeout.count()));
    if (!body.isNull())
        request.setHeader(QNetworkRequest::ContentTypeHeader,
                          QByteArrayLiteral("application/json"));
    QPointer<QObject> guard(scope);
    const bool scoped = scope != nullptr;

    for (int hop = 0;; ++hop) {
        if (scoped && !guard)
            co_return APIError::transport(QStringLiteral("Operation canceled"));
        std::unique_ptr<QNetworkReply, ReplyDeleter> reply(
            method == "GET" ? m_network.get(request) : m_network.put(request, body));
        bool tooLarge = false;
        QNetworkReply* raw = reply.get();
        auto checkSize = [raw, &tooLarge](qint64 received, qint64 total) {
            if (!tooLarge && (received > MaxReplySize || total > MaxReplySize)) {
                tooLarge = true;
                raw->abort();
            }
        };
        connect(raw, &QNetworkReply::downloadProgress, raw, checkSize);
        connect(raw, &QNetworkReply::metaDataChanged, raw, [raw, checkSize] {
            checkSize(0, raw->header(QNetworkRequest::ContentLengthHeader).toLongLong());
        });
        QMetaObject::Connection cancel;
        if (guard)
            cancel = connect(guard.data(), &QObject::destroyed, raw, &QNetworkReply::abort);

        co_await qCoro(raw).waitForFinished();
        // A finished reply lingers until deleted; aborting it then would fail it twice.
        disconnect(cancel);

        if (tooLarge)
            co_return APIError::transport(QStringLiteral("Reply larger than 32 MiB"));
        const QVariant statusAttr = raw->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        const QNetworkReply::NetworkError error = raw->error();
        // Errors below 200 are the connection's; 2xx codes mirror an HTTP status.
        if ((error != QNetworkReply::NoError && error < QNetworkReply::ContentAccessDenied) ||
            (error != QNetworkReply::NoError && !statusAttr.isValid()))
            co_return APIError::transport(raw->errorString());
        if (!statusAttr.isValid())
            co_return APIError::http(0, QStringLiteral("Invalid response"));
        const int status = statusAttr.toInt();

        if (status >= 300 && status < 400 && raw->hasRawHeader("Location")) {
            const QUrl target = request.url().resolved(
                QUrl::fromEncoded(raw->rawHeader("Location"), QUrl::StrictMode));
            // The token goes to the server it was meant for and nowhere else.
            if (!target.isValid() || !sameOrigin(target, request.url()))
                co_return APIError::transport(QStringLiteral("Redirect to another host refused"));
            if (hop >= MaxRedirects)
                co_return APIError::transport(QStringLiteral("Too many redirects"));
            request.setUrl(target);
            if (status == 303) {
                method = "GET";
                body = QByteArray();
                request.setHeader(QNetworkRequest::ContentTypeHeader, QVariant());
            }
            continue;
        }
        const QByteArray payload = raw->readAll();
        if (status == 401)
            co_return APIError::unauthorized();
        if (status < 200 || status > 299)
            co_return APIError::http(status, utf8(payload));
        co_return payload;
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
