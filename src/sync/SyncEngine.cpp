#include "SyncEngine.h"

#include "APIClient.h"
#include "AuthService.h"
#include "Clock.h"
#include "DataStore.h"
#include "SyncMapping.h"

#include <QScopeGuard>

#include <memory>

namespace {
const QString unreadable = QStringLiteral("could not read local data");
}

SyncEngine& SyncEngine::shared()
{
    static SyncEngine* instance = new SyncEngine;
    return *instance;
}

SyncEngine::SyncEngine()
{
    AuthService& auth = AuthService::shared();
    connect(&auth, &AuthService::signedIn, this,
            [this] { QCoro::connect(pullAll(), this, [] {}); });
    connect(&auth, &AuthService::isSignedInChanged, this, [this] {
        if (!AuthService::shared().isSignedIn() && !AuthService::shared().isLoading())
            setLastSyncedAt({});
    });
}

void SyncEngine::setLastSyncedAt(const QDateTime& when)
{
    if (m_lastSyncedAt == when && m_lastSyncedAt.isValid() == when.isValid())
        return;
    m_lastSyncedAt = when;
    emit lastSyncedAtChanged();
}

ModelContext& SyncEngine::context()
{
    return DataStore::shared().mainContext();
}

void SyncEngine::setSyncing(bool on)
{
    const bool was = isSyncing();
    m_syncing += on ? 1 : -1;
    if (was != isSyncing())
        emit isSyncingChanged();
}

void SyncEngine::setApplyingRemote(bool on)
{
    if (m_applyingRemote == on)
        return;
    m_applyingRemote = on;
    emit isApplyingRemoteChanged();
}

void SyncEngine::setLastError(const QString& text)
{
    if (m_lastError == text)
        return;
    m_lastError = text;
    emit lastErrorChanged();
}

void SyncEngine::failed(const APIError& error, const QString& prefix)
{
    if (error.kind() == APIError::Kind::Unauthorized) {
        setLastError(QStringLiteral("Token rejected — sign in again"));
        AuthService::shared().signOut();
        return;
    }
    setLastError(prefix + error.errorDescription());
}

QCoro::Task<> SyncEngine::pullAll()
{
    co_await AuthService::shared().settled();
    if (!AuthService::shared().isSignedIn()) {
        setLastError(QStringLiteral("Not signed in"));
        co_return;
    }
    setSyncing(true);
    // Whatever happens below, the pull ends here.
    const auto end = qScopeGuard([this] {
        setApplyingRemote(false);
        setSyncing(false);
    });

    APIClient& api = APIClient::shared();
    // Destroying the scope aborts whatever is still in flight.
    auto scope = std::make_unique<QObject>();
    auto tasksCall = api.getTasks(scope.get());
    auto habitsCall = api.getHabits(scope.get());
    auto pomodoroCall = api.getPomodoro(scope.get());

    const auto lists = co_await tasksCall;
    if (!lists) {
        failed(lists.error(), {});
        co_return;
    }
    const auto habits = co_await habitsCall;
    if (!habits) {
        failed(habits.error(), {});
        co_return;
    }
    const auto pomodoro = co_await pomodoroCall;
    if (!pomodoro) {
        failed(pomodoro.error(), {});
        co_return;
    }

    ModelContext& ctx = context();
    if (!SyncMapping::readable(ctx)) {
        setLastError(QStringLiteral("Pull failed: ") + unreadable);
        co_return;
    }
    setApplyingRemote(true);
    SyncMapping::applyTasks(ctx, lists.value());
    SyncMapping::applyHabits(ctx, habits.value());
    SyncMapping::applyPomodoro(ctx, pomodoro.value());
    QString why;
    if (!ctx.save(&why)) {
        setLastError(why);
        co_return;
    }
    setApplyingRemote(false);
    setLastSyncedAt(Clock::now());
    setLastError({});
}

QCoro::Task<bool> SyncEngine::mayPush()
{
    // Changes written by a pull are not pushed back; this is decided at once,
    // before waiting for the keychain.
    if (m_applyingRemote)
        co_return false;
    AuthService& auth = AuthService::shared();
    co_await auth.settled();
    co_return auth.isSignedIn();
}

QCoro::Task<> SyncEngine::pushHabits()
{
    if (!co_await mayPush())
        co_return;
    const QString prefix = QStringLiteral("Push (habits) failed: ");
    const std::optional<QList<WireHabit>> habits = SyncMapping::habits(context());
    if (!habits) {
        setLastError(prefix + unreadable);
        co_return;
    }
    const auto error = co_await APIClient::shared().putHabits(*habits);
    if (error)
        failed(*error, prefix);
}

QCoro::Task<> SyncEngine::pushTasks()
{
    if (!co_await mayPush())
        co_return;
    const QString prefix = QStringLiteral("Push (tasks) failed: ");
    const std::optional<QList<WireTaskList>> lists = SyncMapping::taskLists(context());
    if (!lists) {
        setLastError(prefix + unreadable);
        co_return;
    }
    const auto error = co_await APIClient::shared().putTasks(*lists);
    if (error)
        failed(*error, prefix);
}

QCoro::Task<> SyncEngine::pushPomodoro()
{
    if (!co_await mayPush())
        co_return;
    const QString prefix = QStringLiteral("Push (pomodoro) failed: ");
    const std::optional<PomodoroState> state = SyncMapping::pomodoro(context());
    if (!state)
        co_return;
    const auto error = co_await APIClient::shared().putPomodoro(*state);
    if (error)
        failed(*error, prefix);
}
