#pragma once

#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QObject>
#include <QString>

#include <functional>

class APIClient;
class APIError;
class AuthService;
class Clock;
class DataStore;
class ModelContext;

// Keeps the local habits, task lists and timer state in step with the web
// service: whole-resource pushes after local changes, and a full pull on demand.
class SyncEngine final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isSyncing READ isSyncing NOTIFY isSyncingChanged)
    Q_PROPERTY(bool isApplyingRemote READ isApplyingRemote NOTIFY isApplyingRemoteChanged)
    Q_PROPERTY(QString lastError READ lastError NOTIFY lastErrorChanged)
    Q_PROPERTY(QDateTime lastSyncedAt READ lastSyncedAt NOTIFY lastSyncedAtChanged)

public:
    // Follows `auth`: a new sign-in pulls, a sign-out forgets the last sync.
    SyncEngine(DataStore& store, APIClient& client, AuthService& auth, const Clock& clock,
               QObject* parent = nullptr);

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

signals:
    void isSyncingChanged();
    void isApplyingRemoteChanged();
    void lastErrorChanged();
    void lastSyncedAtChanged();

private:
    void setLastSyncedAt(const QDateTime& when);

    ModelContext& context();
    QCoro::Task<bool> mayPush();
    // One resource's push: its local copy, read by `read`, sent by `put`. Taken by
    // value: the coroutine runs on after its caller's temporaries are gone.
    template <typename Read, typename Put> QCoro::Task<> push(QString resource, Read read, Put put);
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
};
