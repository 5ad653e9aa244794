#pragma once

#include "APIClient.h"
#include "SyncBase.h"
#include "SyncCopies.h"

#include <QCoro/QCoroTask>
#include <QDate>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

class APIError;
class AuthService;
class Clock;
class SyncBaseStore;
class SyncStatus;

// Syncs one resource at a time with a server that keeps versions: a push names the
// version it was made on, both sides' changes are merged when another computer got
// there first, and a push that failed on the way is sent again later.
class VersionedSync final : public QObject
{
    Q_OBJECT

public:
    // The plain push of a resource, for a server that stopped keeping versions.
    using PlainPush = std::function<QCoro::Task<>(QString resource)>;

    VersionedSync(APIClient& client, SyncBaseStore& bases, AuthService& auth, SyncCopies& copies,
                  SyncStatus& status, const Clock& clock, PlainPush plainPush);

    // One resource: `fetched` is the server's copy when the caller has it, `pull`
    // fetches it first; otherwise a push. One run at a time per resource; a push
    // asked for meanwhile runs after it.
    QCoro::Task<> sync(QString resource, std::optional<APIClient::Tagged> fetched, bool pull);
    // Stores `base` as the resource's merge base.
    void keep(const QString& resource, const SyncBase& base);
    // How long a failed request waits before it is sent again, doubling from one
    // second to a minute; tests shorten it.
    void setRetryDelays(std::chrono::milliseconds first, std::chrono::milliseconds longest);
    // The wait after `failures` failures in a row.
    std::chrono::milliseconds backoff(int failures) const;

private:
    enum class Outcome { Done, Plain, Failed };
    // What one try at a resource works from.
    struct Attempt
    {
        QString resource;
        QString server;
        QString prefix;
        QDate today;
        std::optional<SyncBase> base;
    };

    // The tries of one run; Plain when the server turns out to keep no versions.
    QCoro::Task<Outcome> syncVersioned(QString resource, std::optional<APIClient::Tagged> fetched,
                                       bool pull);
    // Sends the local copy on the base's version; nothing when the server's copy
    // moved on and is to be fetched.
    QCoro::Task<std::optional<Outcome>> pushLocal(Attempt attempt, SyncCopies::LocalCopy local);
    // Takes in the server's copy, merged with this computer's changes; nothing when
    // the merge is still to be pushed.
    std::optional<Outcome> takeServerCopy(const Attempt& attempt, const APIClient::Tagged& theirs);
    bool applyCopy(const QString& resource, const QByteArray& body);
    // A request that failed: a network failure is sent again later.
    Outcome failedRequest(const APIError& error, const QString& resource, const QString& prefix);
    void retryLater(const QString& resource);

    APIClient& m_client;
    SyncBaseStore& m_bases;
    AuthService& m_auth;
    SyncCopies& m_copies;
    SyncStatus& m_status;
    const Clock& m_clock;
    PlainPush m_plainPush;
    QSet<QString> m_running;
    QSet<QString> m_again;
    QHash<QString, int> m_failures;
    QSet<QString> m_retryPending;
    std::chrono::milliseconds m_firstRetry{1'000};
    std::chrono::milliseconds m_longestRetry{60'000};
};
