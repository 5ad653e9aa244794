#pragma once

#include "APIResult.h"
#include "HttpTransport.h"
#include "PomodoroState.h"
#include "WireHabit.h"
#include "WireTaskList.h"

#include <QCoro/QCoroTask>
#include <QMap>
#include <QObject>

#include <chrono>
#include <optional>

class KeychainStore;
class ModuleLoader;

// The one HTTP client of the web service's REST API: GET and whole-resource PUT
// of task lists, habits and the timer state, authorised with the stored token.
class APIClient final : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 MaxReplySize = 32 * 1024 * 1024;
    static constexpr int MaxRedirects = 5;

    // Requests carry `keychain`'s cached token; the network module is loaded
    // through `modules` on the first request.
    // `transport`, when given, replaces the network module.
    APIClient(const KeychainStore& keychain, const ModuleLoader& modules,
              HttpTransport* transport = nullptr, QObject* parent = nullptr);

    // The bundle's default server, or the local development server.
    static QString defaultServerURL();
    // The user's override when it holds more than blanks (returned as stored),
    // else defaultServerURL().
    static QString serverURLString();

    // An authorised request for `path` on the current server; notSignedIn
    // without a token, a transport error when the server address is unusable.
    APIResult<HttpRequest> makeRequest(const QString& path) const;
    // The server address with `path` appended after exactly one "/".
    static QUrl joined(const QUrl& base, const QString& path);

    // Every call reads the token and server afresh. When `scope` is destroyed
    // before the reply arrives, the request is aborted (a transport error).
    QCoro::Task<APIResult<QList<WireTaskList>>> getTasks(QObject* scope = nullptr);
    QCoro::Task<APIResult<QList<WireHabit>>> getHabits(QObject* scope = nullptr);
    // Absent when the server holds no timer state.
    QCoro::Task<APIResult<std::optional<PomodoroState>>> getPomodoro(QObject* scope = nullptr);
    // Absent on success.
    QCoro::Task<std::optional<APIError>> putTasks(QList<WireTaskList> lists);
    QCoro::Task<std::optional<APIError>> putHabits(QList<WireHabit> habits);
    QCoro::Task<std::optional<APIError>> putPomodoro(PomodoroState state);

    // A body with the version the server tagged it with; `etag` is absent from a
    // server without versions.
    struct Tagged
    {
        QByteArray body;
        std::optional<QByteArray> etag;
        QDateTime storedAt; // when the server stored it (Last-Modified); invalid when unsaid
    };
    // The versions the change feed compares, by resource name.
    using Versions = QMap<QString, qint64>;

    // GET of one resource ("habits", "tasks" or "pomodoro"), with its version.
    QCoro::Task<APIResult<Tagged>> fetch(QString resource, QObject* scope = nullptr);
    // PUT of one resource made on version `ifMatch` (any, when absent); the
    // version it made. A stale version fails with HTTP 412 and stores nothing.
    QCoro::Task<APIResult<Tagged>> store(QString resource, QByteArray body,
                                         std::optional<qint64> ifMatch);
    // Waits on the change feed until the server's versions differ from `known`:
    // the server's versions then, absent when the wait ran out with no change.
    QCoro::Task<APIResult<std::optional<Versions>>> changes(Versions known,
                                                            QObject* scope = nullptr);
    // The version an ETag names; absent for anything but a strong quoted number.
    static std::optional<qint64> versionOf(const std::optional<QByteArray>& etag);

    // Whether a redirect from `from` to `to` may carry the token: within the same
    // server, or the same host moving from http to https.
    static bool mayFollow(const QUrl& from, const QUrl& to);
    // An error body made fit to show: one line, cut after a couple of hundred
    // characters (a server may answer with megabytes).
    static QString readableBody(const QString& body);
    // Whether `token` can travel in an HTTP header: printable ASCII, no spaces.
    static bool isSendable(const QString& token);

    // Inactivity limit of one transfer (60 s) and the limit for the whole of it,
    // redirects included (120 s); tests shorten them.
    void setTransferTimeout(std::chrono::milliseconds timeout) { m_timeout = timeout; }
    void setDeadline(std::chrono::milliseconds deadline) { m_deadline = deadline; }

private:
    // The 2xx body and ETag, or the error the reply maps to. `extra` headers are
    // added to the request; `patience` replaces the transfer limits when set.
    QCoro::Task<APIResult<Tagged>> send(QByteArray method, QString path, QByteArray body,
                                        QObject* scope, HttpRequest::Headers extra = {},
                                        std::chrono::milliseconds patience = {});
    QCoro::Task<std::optional<APIError>> put(QString path, QByteArray body);

    // Loaded on the first request; null when the module is missing.
    HttpTransport* transport(QString* why);

    const KeychainStore& m_keychain;
    const ModuleLoader& m_modules;
    HttpTransport* m_transport = nullptr;
    bool m_transportTried = false;
    QString m_transportMissing;
    std::chrono::milliseconds m_timeout{60'000};
    std::chrono::milliseconds m_deadline{120'000};
};
