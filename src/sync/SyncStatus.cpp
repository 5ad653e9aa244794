#include "SyncStatus.h"

#include "APIError.h"
#include "AuthService.h"
#include "Notify.h"

SyncStatus::SyncStatus(AuthService& auth, QObject* parent)
    : QObject(parent)
    , m_auth(auth)
{}

void SyncStatus::setSyncing(bool on)
{
    const bool was = isSyncing();
    m_syncing += on ? 1 : -1;
    if (was != isSyncing())
        emit isSyncingChanged();
}

void SyncStatus::setApplyingRemote(bool on)
{
    Notify::set(this, m_applyingRemote, on, &SyncStatus::isApplyingRemoteChanged);
}

void SyncStatus::setLastError(const QString& text)
{
    Notify::set(this, m_lastError, text, &SyncStatus::lastErrorChanged);
}

void SyncStatus::setLastSyncedAt(const QDateTime& when)
{
    if (m_lastSyncedAt == when && m_lastSyncedAt.isValid() == when.isValid())
        return;
    m_lastSyncedAt = when;
    emit lastSyncedAtChanged();
}

void SyncStatus::setHasVersions(bool on)
{
    Notify::set(this, m_hasVersions, on, &SyncStatus::hasVersionsChanged);
}

void SyncStatus::setKeepInStep(bool on)
{
    Notify::set(this, m_keepInStep, on, &SyncStatus::keepsInStepChanged);
}

void SyncStatus::failed(const APIError& error, const QString& prefix)
{
    if (error.kind() == APIError::Kind::Unauthorized) {
        setLastError(QStringLiteral("Token rejected — sign in again"));
        m_auth.signOut();
        return;
    }
    setLastError(prefix + error.errorDescription());
}
