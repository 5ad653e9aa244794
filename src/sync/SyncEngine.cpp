#include "SyncEngine.h"

#include "APIError.h"
#include "AuthService.h"
#include "Clock.h"
#include "DataStore.h"
#include "FeedListener.h"
#include "ModelContext.h"
#include "SyncBaseStore.h"
#include "SyncMapping.h"
#include "VersionedSync.h"
#include "WireEnvelope.h"

#include <QPointer>
#include <QScopeGuard>

#include <algorithm>

SyncEngine::SyncEngine(DataStore& store, APIClient& client, AuthService& auth, const Clock& clock,
                       SyncBaseStore* bases, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_client(client)
    , m_auth(auth)
    , m_clock(clock)
    , m_bases(bases)
    , m_status(auth)
    , m_copies(store, clock)
{
    if (m_bases) {
        const QString server = APIClient::serverURLString();
        const QStringList& resources = SyncCopies::resources;
        m_status.setHasVersions(
            std::any_of(resources.cbegin(), resources.cend(),
                        [&](const QString& r) { return m_bases->load(r, server).has_value(); }));
        m_versioned = std::make_unique<VersionedSync>(
            client, *bases, auth, m_copies, m_status, clock,
            [this](QString resource) { return pushPlain(resource); });
        m_feed =
            std::make_unique<FeedListener>(client, *bases, auth, m_status, *m_versioned, clock);
    }
    connect(&m_status, &SyncStatus::isSyncingChanged, this, &SyncEngine::isSyncingChanged);
    connect(&m_status, &SyncStatus::isApplyingRemoteChanged, this,
            &SyncEngine::isApplyingRemoteChanged);
    connect(&m_status, &SyncStatus::lastErrorChanged, this, &SyncEngine::lastErrorChanged);
    connect(&m_status, &SyncStatus::lastSyncedAtChanged, this, &SyncEngine::lastSyncedAtChanged);
    connect(&m_status, &SyncStatus::hasVersionsChanged, this,
            &SyncEngine::serverHasVersionsChanged);
    connect(&m_status, &SyncStatus::keepsInStepChanged, this, &SyncEngine::keepsInStepChanged);

    connect(&auth, &AuthService::signedIn, this,
            [this] { QCoro::connect(pullAll(), this, [] {}); });
    connect(&auth, &AuthService::isSignedInChanged, this, [this] {
        if (m_auth.isSignedIn()) {
            if (m_feed)
                m_feed->listenSoon();
            return;
        }
        if (m_feed)
            m_feed->stop();
        if (!m_auth.isLoading()) {
            m_status.setLastSyncedAt({});
            // The next account starts from its own server's copy.
            if (m_bases)
                m_bases->clear();
            m_status.setHasVersions(false);
        }
    });
}

SyncEngine::~SyncEngine() = default;

ModelContext& SyncEngine::context()
{
    return m_store.mainContext();
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
        m_status.setLastError(QStringLiteral("Not signed in"));
        co_return;
    }
    m_status.setSyncing(true);
    // Whatever happens below, the pull ends here.
    const auto end = qScopeGuard([self] {
        if (!self)
            return;
        self->m_status.setApplyingRemote(false);
        self->m_status.setSyncing(false);
    });

    // Destroying the scope aborts whatever is still in flight.
    auto scope = std::make_unique<QObject>();
    auto tasksCall = m_client.fetch(SyncCopies::tasksName, scope.get());
    auto habitsCall = m_client.fetch(SyncCopies::habitsName, scope.get());
    auto pomodoroCall = m_client.fetch(SyncCopies::pomodoroName, scope.get());

    const auto listsReply = co_await tasksCall;
    if (!self)
        co_return;
    if (!listsReply) {
        m_status.failed(listsReply.error(), {});
        co_return;
    }
    const auto habitsReply = co_await habitsCall;
    if (!self)
        co_return;
    if (!habitsReply) {
        m_status.failed(habitsReply.error(), {});
        co_return;
    }
    const auto pomodoroReply = co_await pomodoroCall;
    if (!self)
        co_return;
    if (!pomodoroReply) {
        m_status.failed(pomodoroReply.error(), {});
        co_return;
    }

    const bool versioned = m_bases && APIClient::versionOf(listsReply.value().etag) &&
                           APIClient::versionOf(habitsReply.value().etag) &&
                           APIClient::versionOf(pomodoroReply.value().etag);
    if (versioned) {
        m_status.setHasVersions(true);
        QList<std::pair<QString, APIClient::Tagged>> copies;
        copies.append({SyncCopies::tasksName, listsReply.value()});
        copies.append({SyncCopies::habitsName, habitsReply.value()});
        copies.append({SyncCopies::pomodoroName, pomodoroReply.value()});
        co_await pullVersioned(std::move(copies));
        co_return;
    }
    m_status.setHasVersions(false);
    applyPulled(listsReply.value(), habitsReply.value(), pomodoroReply.value());
}

QCoro::Task<> SyncEngine::pullVersioned(QList<std::pair<QString, APIClient::Tagged>> copies)
{
    const QPointer<SyncEngine> self(this);
    m_status.setLastError({});
    for (const auto& [resource, copy] : copies) {
        co_await m_versioned->sync(resource, copy, true);
        if (!self)
            co_return;
    }
    if (m_status.lastError().isEmpty())
        m_status.setLastSyncedAt(m_clock.now());
    if (m_status.keepsInStep())
        m_feed->listen();
}

void SyncEngine::applyPulled(const APIClient::Tagged& listsCopy,
                             const APIClient::Tagged& habitsCopy,
                             const APIClient::Tagged& pomodoroCopy)
{
    QString why;
    const auto lists = WireEnvelope::decodeTasks(listsCopy.body, &why);
    const auto habits = lists ? WireEnvelope::decodeHabits(habitsCopy.body, &why) : std::nullopt;
    std::optional<PomodoroState> pomodoro;
    if (!lists || !habits || !WireEnvelope::decodePomodoro(pomodoroCopy.body, &pomodoro, &why)) {
        m_status.failed(APIError::decoding(why), {});
        return;
    }

    ModelContext& ctx = context();
    if (!SyncMapping::readable(ctx)) {
        m_status.setLastError(QStringLiteral("Pull failed: ") + SyncCopies::unreadable);
        return;
    }
    m_status.setApplyingRemote(true);
    SyncMapping::applyTasks(ctx, *lists);
    SyncMapping::applyHabits(ctx, *habits, m_clock.now());
    SyncMapping::applyPomodoro(ctx, pomodoro, m_clock.now());
    if (!ctx.save(&why)) {
        m_status.setLastError(why);
        return;
    }
    m_status.setApplyingRemote(false);
    m_status.setLastSyncedAt(m_clock.now());
    m_status.setLastError({});
}

QCoro::Task<bool> SyncEngine::mayPush()
{
    // Changes written by a pull are not pushed back; this is decided at once,
    // before waiting for the keychain.
    if (m_status.isApplyingRemote())
        co_return false;
    const QPointer<SyncEngine> self(this);
    co_await m_auth.settled();
    co_return self&& m_auth.isSignedIn();
}

template <typename Read> QCoro::Task<> SyncEngine::push(QString resource, Read read)
{
    // Noted before anything waits: the merge compares it with the server's changes.
    if (!m_status.isApplyingRemote())
        m_copies.noteLocalChange(resource, m_clock.now());
    if (!co_await mayPush())
        co_return;
    if (m_versioned && m_status.hasVersions()) {
        co_await m_versioned->sync(resource, std::nullopt, false);
        co_return;
    }
    const QString prefix = QStringLiteral("Push (%1) failed: ").arg(resource);
    // Nothing to send (a timer never configured) says nothing; a store that
    // could not be read says so, and sends nothing.
    const quint64 failures = context().readFailures();
    const auto local = read(context());
    if (!local) {
        if (context().readFailures() != failures)
            m_status.setLastError(prefix + SyncCopies::unreadable);
        co_return;
    }
    const auto copy = m_copies.localCopy(resource);
    const QString server = APIClient::serverURLString();
    const QPointer<SyncEngine> self(this);
    const auto answer =
        co_await m_client.store(resource, WireEnvelope::encode(*local), std::nullopt);
    if (!self)
        co_return;
    if (!answer) {
        m_status.failed(answer.error(), prefix);
        co_return;
    }
    // A server that tags what it stored keeps versions: what was sent is the
    // base of the next merge, and from now on pushes name their version.
    const auto version = APIClient::versionOf(answer.value().etag);
    if (m_versioned && version && copy) {
        m_versioned->keep(resource, {server, *version, copy->body, copy->ids,
                                     m_clock.now().toLocalTime().date()});
        m_status.setHasVersions(true);
        m_feed->listenSoon();
    }
}

QCoro::Task<> SyncEngine::pushHabits()
{
    return push(SyncCopies::habitsName, &SyncMapping::habits);
}

QCoro::Task<> SyncEngine::pushTasks()
{
    return push(SyncCopies::tasksName, &SyncMapping::taskLists);
}

QCoro::Task<> SyncEngine::pushPomodoro()
{
    return push(SyncCopies::pomodoroName, &SyncMapping::pomodoro);
}

QCoro::Task<> SyncEngine::pushPlain(const QString& resource)
{
    if (resource == SyncCopies::habitsName)
        return pushHabits();
    if (resource == SyncCopies::tasksName)
        return pushTasks();
    return pushPomodoro();
}

void SyncEngine::setKeepInStep(bool on)
{
    m_status.setKeepInStep(on);
    if (!m_feed)
        return;
    if (on)
        m_feed->listen();
    else
        m_feed->stop();
}

void SyncEngine::setRetryDelays(std::chrono::milliseconds first, std::chrono::milliseconds longest)
{
    if (m_versioned)
        m_versioned->setRetryDelays(first, longest);
}
