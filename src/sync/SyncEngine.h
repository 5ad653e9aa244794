#pragma once

#include "APIClient.h"
#include "SyncMerge.h"

#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#include <functional>

class APIError;
class AuthService;
class Clock;
class DataStore;
class ModelContext;
class SyncBaseStore;
struct SyncBase;

// Keeps the local habits, task lists and timer state in step with the web
// service: whole-resource pushes after local changes, and a full pull on demand.
// With a server that keeps versions, pushes name the version they were made on,
// both sides' changes are merged when another computer got there first, failed
// pushes are sent again, and the change feed brings other computers' changes.
class SyncEngine final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isSyncing READ isSyncing NOTIFY isSyncingChanged)
    Q_PROPERTY(bool isApplyingRemote READ isApplyingRemote NOTIFY isApplyingRemoteChanged)
    Q_PROPERTY(QString lastError READ lastError NOTIFY lastErrorChanged)
    Q_PROPERTY(QDateTime lastSyncedAt READ lastSyncedAt NOTIFY lastSyncedAtChanged)
    Q_PROPERTY(bool serverHasVersions READ serverHasVersions NOTIFY serverHasVersionsChanged)
    Q_PROPERTY(bool keepsInStep READ keepsInStep WRITE setKeepInStep NOTIFY keepsInStepChanged)

public:
    // Follows `auth`: a new sign-in pulls, a sign-out forgets the last sync.
    // Without `bases` every server is synced as one without versions.
    SyncEngine(DataStore& store, APIClient& client, AuthService& auth, const Clock& clock,
               SyncBaseStore* bases = nullptr, QObject* parent = nullptr);

    QCoro::Task<> pullAll();
    // Each sends its whole resource as read from the store now; dropped while
    // signed out or while a pull is being applied.
    QCoro::Task<> pushHabits();
    QCoro::Task<> pushTasks();
    QCoro::Task<> pushPomodoro();

    bool isSyncing() const { return m_syncing > 0; }
    bool isApplyingRemote() const { return m_applyingRemote; }
    // Empty when there is no error.
    QString lastError() const { return m_lastError; }
    // Invalid until a pull succeeds, and again after a sign-out.
    QDateTime lastSyncedAt() const { return m_lastSyncedAt; }

    // Whether the current server keeps versions: learnt from its answers and
    // remembered with the merge bases.
    bool serverHasVersions() const { return m_hasVersions; }
    // Listening on the change feed while signed in to a server with versions.
    void setKeepInStep(bool on);
    bool keepsInStep() const { return m_keepInStep; }
    // How long a failed push waits before it is sent again, doubling from one
    // second to a minute; tests shorten it.
    void setRetryDelays(std::chrono::milliseconds first, std::chrono::milliseconds longest);

signals:
    void isSyncingChanged();
    void isApplyingRemoteChanged();
    void lastErrorChanged();
    void lastSyncedAtChanged();
    void serverHasVersionsChanged();
    void keepsInStepChanged();

private:
    enum class Outcome { Done, Plain, Failed };
    struct LocalCopy
    {
        QByteArray body;
        QByteArray ids;
    };

    // One resource in the versioned mode: `fetched` is the server's copy when
    // the caller has it, `pull` fetches it first; otherwise a push. Plain when
    // the server turns out to keep no versions.
    QCoro::Task<Outcome> syncVersioned(QString resource, std::optional<APIClient::Tagged> fetched,
                                       bool pull);
    // syncVersioned() one at a time per resource; a push asked for meanwhile
    // runs after it.
    QCoro::Task<> syncResource(QString resource, std::optional<APIClient::Tagged> fetched,
                               bool pull);
    std::optional<LocalCopy> localCopy(const QString& resource);
    bool applyCopy(const QString& resource, const QByteArray& body);
    // The body as this app encodes it, so that copies compare byte for byte.
    std::optional<QByteArray> canonical(const QString& resource, const QByteArray& envelope,
                                        QString* why);
    std::optional<QByteArray> merged(const QString& resource, const SyncBase& base,
                                     const LocalCopy& local, const QByteArray& server,
                                     const QDateTime& storedAt, SyncMerge::Origins* origins);
    // The local identities of the server's copy's records after a merge.
    QByteArray serverIds(const QString& resource, const SyncMerge::Origins& origins,
                         const QByteArray& server);
    void keep(const QString& resource, const SyncBase& base);
    // A request that failed: a network failure is sent again later.
    Outcome failedRequest(const APIError& error, const QString& resource, const QString& prefix);
    void retryLater(const QString& resource);
    // The wait after `failures` failures in a row.
    std::chrono::milliseconds backoff(int failures) const;
    void setHasVersions(bool on);
    QCoro::Task<> listen();
    void listenSoon();
    void stopListening();

    void setLastSyncedAt(const QDateTime& when);

    ModelContext& context();
    QCoro::Task<bool> mayPush();
    // One resource's push: its local copy, read by `read`. Taken by value: the
    // coroutine runs on after its caller's temporaries are gone.
    template <typename Read> QCoro::Task<> push(QString resource, Read read);
    // A failed request: a rejected token signs out; anything else is reported
    // after `prefix`.
    void failed(const APIError& error, const QString& prefix);
    void setSyncing(bool on);
    void setApplyingRemote(bool on);
    void setLastError(const QString& text);

    DataStore& m_store;
    APIClient& m_client;
    AuthService& m_auth;
    const Clock& m_clock;
    // Pulls running at once; isSyncing while any of them runs.
    int m_syncing = 0;
    bool m_applyingRemote = false;
    QString m_lastError;
    QDateTime m_lastSyncedAt;

    SyncBaseStore* m_bases;
    bool m_hasVersions = false;
    bool m_keepInStep = true;
    bool m_listening = false;
    // Deleted to end the wait on the change feed.
    QPointer<QObject> m_feedScope;
    QHash<QString, QDateTime> m_localChangedAt;
    QSet<QString> m_running;
    QSet<QString> m_again;
    QHash<QString, int> m_failures;
    QSet<QString> m_retryPending;
    std::chrono::milliseconds m_firstRetry{1'000};
    std::chrono::milliseconds m_longestRetry{60'000};
};
