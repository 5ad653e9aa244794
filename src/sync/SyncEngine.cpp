#include "SyncEngine.h"

#include "APIClient.h"
#include "AuthService.h"
#include "Clock.h"
#include "DataStore.h"
#include "Notify.h"
#include "SyncMapping.h"

#include <QPointer>
#include <QScopeGuard>

#include <memory>

namespace {
const QString unreadable = QStringLiteral("could not read local data");
}

SyncEngine::SyncEngine(DataStore& store, APIClient& client, AuthService& auth, const Clock& clock,
                       QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_client(client)
    , m_auth(auth)
    , m_clock(clock)
{
    connect(&auth, &AuthService::signedIn, this,
            [this] { QCoro::connect(pullAll(), this, [] {}); });
    connect(&auth, &AuthService::isSignedInChanged, this, [this] {
        if (!m_auth.isSignedIn() && !m_auth.isLoading())
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
    return m_store.mainContext();
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
    Notify::set(this, m_applyingRemote, on, &SyncEngine::isApplyingRemoteChanged);
}

void SyncEngine::setLastError(const QString& text)
{
    Notify::set(this, m_lastError, text, &SyncEngine::lastErrorChanged);
}

void SyncEngine::failed(const APIError& error, const QString& prefix)
{
    if (error.kind() == APIError::Kind::Unauthorized) {
        setLastError(QStringLiteral("Token rejected — sign in again"));
        m_auth.signOut();
        return;
    }
    setLastError(prefix + error.errorDescription());
}

QCoro::Task<> SyncEngine::pullAll()
{
    // The engine may go while a request is out (a test's restart): then the
    // pull ends without touching it.
    const QPointer<SyncEngine> self(this);
    co_await m_auth.settled();
    if (!self)
        co_return;
    if (!m_auth.isSignedIn()) {
        setLastError(QStringLiteral("Not signed in"));
        co_return;
    }
    setSyncing(true);
    // Whatever happens below, the pull ends here.
    const auto end = qScopeGuard([self] {
        if (!self)
            return;
        self->setApplyingRemote(false);
        self->setSyncing(false);
    });

    // Destroying the scope aborts whatever is still in flight.
    auto scope = std::make_unique<QObject>();
    auto tasksCall = m_client.getTasks(scope.get());
    auto habitsCall = m_client.getHabits(scope.get());
    auto pomodoroCall = m_client.getPomodoro(scope.get());

    const auto lists = co_await tasksCall;
    if (!self)
        co_return;
    if (!lists) {
        failed(lists.error(), {});
        co_return;
    }
    const auto habits = co_await habitsCall;
    if (!self)
        co_return;
    if (!habits) {
        failed(habits.error(), {});
        co_return;
    }
    const auto pomodoro = co_await pomodoroCall;
    if (!self)
        co_return;
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
    SyncMapping::applyHabits(ctx, habits.value(), m_clock.now());
    SyncMapping::applyPomodoro(ctx, pomodoro.value(), m_clock.now());
    QString why;
    if (!ctx.save(&why)) {
        setLastError(why);
        co_return;
    }
    setApplyingRemote(false);
    setLastSyncedAt(m_clock.now());
    setLastError({});
}

QCoro::Task<bool> SyncEngine::mayPush()
{
    // Changes written by a pull are not pushed back; this is decided at once,
    // before waiting for the keychain.
    if (m_applyingRemote)
        co_return false;
    const QPointer<SyncEngine> self(this);
    co_await m_auth.settled();
    co_return self&& m_auth.isSignedIn();
}

template <typename Read, typename Put>
QCoro::Task<> SyncEngine::push(QString resource, Read read, Put put)
{
    if (!co_await mayPush())
        co_return;
    const QString prefix = QStringLiteral("Push (%1) failed: ").arg(resource);
    // Nothing to send (a timer never configured) says nothing; a store that
    // could not be read says so, and sends nothing.
    const quint64 failures = context().readFailures();
    const auto local = read(context());
    if (!local) {
        if (context().readFailures() != failures)
            setLastError(prefix + unreadable);
        co_return;
    }
    const QPointer<SyncEngine> self(this);
    const auto error = co_await put(*local);
    if (self && error)
        failed(*error, prefix);
}

QCoro::Task<> SyncEngine::pushHabits()
{
    return push(QStringLiteral("habits"), &SyncMapping::habits,
                [this](const QList<WireHabit>& habits) { return m_client.putHabits(habits); });
}

QCoro::Task<> SyncEngine::pushTasks()
{
    return push(QStringLiteral("tasks"), &SyncMapping::taskLists,
                [this](const QList<WireTaskList>& lists) { return m_client.putTasks(lists); });
}

QCoro::Task<> SyncEngine::pushPomodoro()
{
    return push(QStringLiteral("pomodoro"), &SyncMapping::pomodoro,
                [this](const PomodoroState& state) { return m_client.putPomodoro(state); });
}
