#pragma once

#include "APIClient.h"
#include "SyncCopies.h"
#include "SyncStatus.h"

#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>

#include <chrono>
#include <memory>
#include <utility>

class AuthService;
class FeedListener;
class Clock;
class DataStore;
class ModelContext;
class SyncBaseStore;
class VersionedSync;

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
    ~SyncEngine() override;

    QCoro::Task<> pullAll();
    // Each sends its whole resource as read from the store now; dropped while
    // signed out or while a pull is being applied.
    QCoro::Task<> pushHabits();
    QCoro::Task<> pushTasks();
    QCoro::Task<> pushPomodoro();

    bool isSyncing() const { return m_status.isSyncing(); }
    bool isApplyingRemote() const { return m_status.isApplyingRemote(); }
    // Empty when there is no error.
    QString lastError() const { return m_status.lastError(); }
    // Invalid until a pull succeeds, and again after a sign-out.
    QDateTime lastSyncedAt() const { return m_status.lastSyncedAt(); }

    // Whether the current server keeps versions: learnt from its answers and
    // remembered with the merge bases.
    bool serverHasVersions() const { return m_status.hasVersions(); }
    // Listening on the change feed while signed in to a server with versions.
    void setKeepInStep(bool on);
    bool keepsInStep() const { return m_status.keepsInStep(); }
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
    // Merged with what this computer has not pushed yet, one after the other.
    QCoro::Task<> pullVersioned(QList<std::pair<QString, APIClient::Tagged>> copies);
    // Replaces the local records with the server's copies, as a server without
    // versions sends them.
    void applyPulled(const APIClient::Tagged& lists, const APIClient::Tagged& habits,
                     const APIClient::Tagged& pomodoro);
    QCoro::Task<> pushPlain(const QString& resource);

    ModelContext& context();
    QCoro::Task<bool> mayPush();
    // One resource's push: its local copy, read by `read`. Taken by value: the
    // coroutine runs on after its caller's temporaries are gone.
    template <typename Read> QCoro::Task<> push(QString resource, Read read);

    DataStore& m_store;
    APIClient& m_client;
    AuthService& m_auth;
    const Clock& m_clock;
    SyncBaseStore* m_bases;
    SyncStatus m_status;
    SyncCopies m_copies;
    // Only with `bases`. The feed, declared last, goes first: it uses the versioned sync.
    std::unique_ptr<VersionedSync> m_versioned;
    std::unique_ptr<FeedListener> m_feed;
};
