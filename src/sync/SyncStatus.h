#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>

class APIError;
class AuthService;

// What the sync engine shows of itself, shared with the parts it runs: whether it
// syncs or applies a pull, the last error and sync, and what it knows of the server.
class SyncStatus final : public QObject
{
    Q_OBJECT

public:
    explicit SyncStatus(AuthService& auth, QObject* parent = nullptr);

    bool isSyncing() const { return m_syncing > 0; }
    bool isApplyingRemote() const { return m_applyingRemote; }
    QString lastError() const { return m_lastError; }
    QDateTime lastSyncedAt() const { return m_lastSyncedAt; }
    bool hasVersions() const { return m_hasVersions; }
    bool keepsInStep() const { return m_keepInStep; }

    // Counts the pulls running at once: syncing while any of them runs.
    void setSyncing(bool on);
    void setApplyingRemote(bool on);
    void setLastError(const QString& text);
    void setLastSyncedAt(const QDateTime& when);
    void setHasVersions(bool on);
    void setKeepInStep(bool on);

    // A failed request: a rejected token signs out; anything else is reported
    // after `prefix`.
    void failed(const APIError& error, const QString& prefix);

signals:
    void isSyncingChanged();
    void isApplyingRemoteChanged();
    void lastErrorChanged();
    void lastSyncedAtChanged();
    void hasVersionsChanged();
    void keepsInStepChanged();

private:
    AuthService& m_auth;
    int m_syncing = 0;
    bool m_applyingRemote = false;
    QString m_lastError;
    QDateTime m_lastSyncedAt;
    bool m_hasVersions = false;
    bool m_keepInStep = true;
};
