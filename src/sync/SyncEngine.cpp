#include "SyncEngine.h"

#include "APIClient.h"
#include "AuthService.h"
#include "Clock.h"
#include "DataStore.h"
#include "ModelContext.h"
#include "Notify.h"
#include "Pause.h"
#include "SyncBaseStore.h"
#include "SyncMapping.h"
#include "SyncMerge.h"
#include "WireEnvelope.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>
#include <QTimer>

#include <memory>
#include <tuple>

namespace {
const QString unreadable = QStringLiteral("could not read local data");
const QString habitsName = QStringLiteral("habits");
const QString tasksName = QStringLiteral("tasks");
const QString pomodoroName = QStringLiteral("pomodoro");
const QStringList resources{habitsName, tasksName, pomodoroName};
// Tries of one push against a server others keep changing.
constexpr int maxAttempts = 5;
// How far the server's clock may be off this computer's without moving a count
// to another day.
constexpr qint64 clockSlack = 5 * 60;
// Start-up is not slowed by the network: the feed is joined a little later.
constexpr std::chrono::seconds feedAfterStart{3};

QByteArray idsJson(const QStringList& ids)
{
    return QJsonDocument(QJsonArray::fromStringList(ids)).toJson(QJsonDocument::Compact);
}

QByteArray idsJson(const QList<std::pair<QString, QStringList>>& lists)
{
    QJsonArray out;
    for (const auto& [list, tasks] : lists)
        out.append(QJsonObject{{QStringLiteral("id"), list},
                               {QStringLiteral("tasks"), QJsonArray::fromStringList(tasks)}});
    return QJsonDocument(out).toJson(QJsonDocument::Compact);
}

bool isStale(const APIError& error)
{
    return error.kind() == APIError::Kind::Http && error.status() == 412;
}
} // namespace

SyncEngine::SyncEngine(DataStore& store, APIClient& client, AuthService& auth, const Clock& clock,
                       SyncBaseStore* bases, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_client(client)
    , m_auth(auth)
    , m_clock(clock)
    , m_bases(bases)
{
    connect(&auth, &AuthService::signedIn, this,
            [this] { QCoro::connect(pullAll(), this, [] {}); });
    connect(&auth, &AuthService::isSignedInChanged, this, [this] {
        if (m_auth.isSignedIn()) {
            listenSoon();
            return;
        }
        stopListening();
        if (!m_auth.isLoading()) {
            setLastSyncedAt({});
            // The next account starts from its own server's copy.
            if (m_bases)
                m_bases->clear();
            setHasVersions(false);
        }
    });
    if (m_bases) {
        const QString server = APIClient::serverURLString();
        m_hasVersions = std::any_of(resources.cbegin(), resources.cend(), [&](const QString& r) {
            return m_bases->load(r, server).has_value();
        });
    }
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
    auto tasksCall = m_client.fetch(tasksName, scope.get());
    auto habitsCall = m_client.fetch(habitsName, scope.get());
    auto pomodoroCall = m_client.fetch(pomodoroName, scope.get());

    const auto listsReply = co_await tasksCall;
    if (!self)
        co_return;
    if (!listsReply) {
        failed(listsReply.error(), {});
        co_return;
    }
    const auto habitsReply = co_await habitsCall;
    if (!self)
        co_return;
    if (!habitsReply) {
        failed(habitsReply.error(), {});
        co_return;
    }
    const auto pomodoroReply = co_await pomodoroCall;
    if (!self)
        co_return;
    if (!pomodoroReply) {
        failed(pomodoroReply.error(), {});
        co_return;
    }

    const bool versioned = m_bases && APIClient::versionOf(listsReply.value().etag) &&
                           APIClient::versionOf(habitsReply.value().etag) &&
                           APIClient::versionOf(pomodoroReply.value().etag);
    if (versioned) {
        setHasVersions(true);
        // Each copy is merged with what this computer has not pushed yet.
        const std::pair<QString, APIClient::Tagged> copies[] = {
            {tasksName, listsReply.value()},
            {habitsName, habitsReply.value()},
            {pomodoroName, pomodoroReply.value()}};
        const QString before = m_lastError;
        setLastError({});
        for (const auto& [resource, copy] : copies) {
            co_await syncResource(resource, copy, true);
            if (!self)
                co_return;
        }
        if (m_lastError.isEmpty())
            setLastSyncedAt(m_clock.now());
        if (m_keepInStep)
            QCoro::connect(listen(), this, [] {});
        co_return;
    }
    setHasVersions(false);

    QString why;
    const auto lists = WireEnvelope::decodeTasks(listsReply.value().body, &why);
    const auto habits =
        lists ? WireEnvelope::decodeHabits(habitsReply.value().body, &why) : std::nullopt;
    std::optional<PomodoroState> pomodoro;
    if (!lists || !habits ||
        !WireEnvelope::decodePomodoro(pomodoroReply.value().body, &pomodoro, &why)) {
        failed(APIError::decoding(why), {});
        co_return;
    }

    ModelContext& ctx = context();
    if (!SyncMapping::readable(ctx)) {
        setLastError(QStringLiteral("Pull failed: ") + unreadable);
        co_return;
    }
    setApplyingRemote(true);
    SyncMapping::applyTasks(ctx, *lists);
    SyncMapping::applyHabits(ctx, *habits, m_clock.now());
    SyncMapping::applyPomodoro(ctx, pomodoro, m_clock.now());
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

template <typename Read> QCoro::Task<> SyncEngine::push(QString resource, Read read)
{
    // Noted before anything waits: the merge compares it with the server's changes.
    if (!m_applyingRemote)
        m_localChangedAt.insert(resource, m_clock.now());
    if (!co_await mayPush())
        co_return;
    if (m_bases && m_hasVersions) {
        co_await syncResource(resource, std::nullopt, false);
        co_return;
    }
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
    const auto copy = localCopy(resource);
    const QString server = APIClient::serverURLString();
    const QPointer<SyncEngine> self(this);
    const auto answer =
        co_await m_client.store(resource, WireEnvelope::encode(*local), std::nullopt);
    if (!self)
        co_return;
    if (!answer) {
        failed(answer.error(), prefix);
        co_return;
    }
    // A server that tags what it stored keeps versions: what was sent is the
    // base of the next merge, and from now on pushes name their version.
    const auto version = APIClient::versionOf(answer.value().etag);
    if (m_bases && version && copy) {
        keep(resource,
             {server, *version, copy->body, copy->ids, m_clock.now().toLocalTime().date()});
        setHasVersions(true);
        listenSoon();
    }
}

QCoro::Task<> SyncEngine::pushHabits()
{
    return push(habitsName, &SyncMapping::habits);
}

QCoro::Task<> SyncEngine::pushTasks()
{
    return push(tasksName, &SyncMapping::taskLists);
}

QCoro::Task<> SyncEngine::pushPomodoro()
{
    return push(pomodoroName, &SyncMapping::pomodoro);
}

void SyncEngine::setHasVersions(bool on)
{
    Notify::set(this, m_hasVersions, on, &SyncEngine::serverHasVersionsChanged);
}

void SyncEngine::setRetryDelays(std::chrono::milliseconds first, std::chrono::milliseconds longest)
{
    m_firstRetry = first;
    m_longestRetry = longest;
}

std::optional<SyncEngine::LocalCopy> SyncEngine::localCopy(const QString& resource)
{
    ModelContext& ctx = context();
    if (resource == habitsName) {
        const auto habits = SyncMapping::habits(ctx);
        if (!habits)
            return std::nullopt;
        return LocalCopy{WireEnvelope::encode(*habits), idsJson(SyncMapping::habitIds(ctx))};
    }
    if (resource == tasksName) {
        const auto lists = SyncMapping::taskLists(ctx);
        if (!lists)
            return std::nullopt;
        return LocalCopy{WireEnvelope::encode(*lists), idsJson(SyncMapping::taskIds(ctx))};
    }
    const quint64 failures = ctx.readFailures();
    const auto state = SyncMapping::pomodoro(ctx);
    if (!state && ctx.readFailures() != failures)
        return std::nullopt;
    // A timer never configured travels as null, as the server answers for it.
    return LocalCopy{state ? WireEnvelope::encode(*state) : QByteArrayLiteral("null"), {}};
}

std::optional<QByteArray> SyncEngine::canonical(const QString& resource, const QByteArray& envelope,
                                                QString* why)
{
    if (resource == habitsName) {
        const auto habits = WireEnvelope::decodeHabits(envelope, why);
        return habits ? std::optional(WireEnvelope::encode(*habits)) : std::nullopt;
    }
    if (resource == tasksName) {
        const auto lists = WireEnvelope::decodeTasks(envelope, why);
        return lists ? std::optional(WireEnvelope::encode(*lists)) : std::nullopt;
    }
    std::optional<PomodoroState> state;
    if (!WireEnvelope::decodePomodoro(envelope, &state, why))
        return std::nullopt;
    return state ? WireEnvelope::encode(*state) : QByteArrayLiteral("null");
}

bool SyncEngine::applyCopy(const QString& resource, const QByteArray& body)
{
    ModelContext& ctx = context();
    QString why;
    if (!SyncMapping::readable(ctx)) {
        setLastError(QStringLiteral("Pull failed: ") + unreadable);
        return false;
    }
    setApplyingRemote(true);
    if (resource == habitsName) {
        if (const auto habits = WireEnvelope::decodeHabitsBody(body, &why))
            SyncMapping::updateHabits(ctx, *habits, m_clock.now());
    } else if (resource == tasksName) {
        if (const auto lists = WireEnvelope::decodeTasksBody(body, &why))
            SyncMapping::updateTasks(ctx, *lists);
    } else if (body != "null") {
        SyncMapping::applyPomodoro(ctx, WireEnvelope::decodePomodoroBody(body, &why),
                                   m_clock.now());
    }
    const bool saved = why.isEmpty() && ctx.save(&why);
    setApplyingRemote(false);
    if (!saved)
        setLastError(why);
    return saved;
}

std::optional<QByteArray> SyncEngine::merged(const QString& resource, const SyncBase& base,
                                             const LocalCopy& local, const QByteArray& server,
                                             const QDateTime& storedAt, SyncMerge::Origins* origins)
{
    const QDate today = m_clock.now().toLocalTime().date();
    const QDateTime now = m_clock.now();
    // The server's changes date from when it stored them, when it says so (never
    // later than now); else from now, the moment this computer learns of them.
    const QDateTime theirs = storedAt.isValid() ? std::min(storedAt, now) : now;
    // Its counts are an earlier day's only when stored well before this computer's
    // midnight: near it, a clock a little off would drop the other computer's
    // raises, and counting them on today errs on the side of keeping them.
    QDate serverDay = server == base.body ? base.day : today;
    if (server != base.body && theirs.addSecs(clockSlack) < today.startOfDay())
        serverDay = theirs.addSecs(clockSlack).toLocalTime().date();
    const SyncMerge::Sides sides{m_localChangedAt.value(resource, now), theirs, base.day, today,
                                 serverDay};
    QString why;
    const QJsonArray baseIds = QJsonDocument::fromJson(base.ids).array();
    const QJsonArray localIds = QJsonDocument::fromJson(local.ids).array();
    // The base, this computer's copy and the server's, read by `decode`.
    const auto three = [&](auto decode) {
        return std::tuple{decode(base.body, &why), decode(local.body, &why), decode(server, &why)};
    };
    if (resource == habitsName) {
        const auto [b, l, s] = three(&WireEnvelope::decodeHabitsBody);
        if (!b || !l || !s)
            return std::nullopt;
        // A habit this computer renamed is known by its identity.
        SyncMerge::Renames renames;
        for (qsizetype i = 0; i < l->size() && i < localIds.size(); ++i) {
            const qsizetype at = baseIds.toVariantList().indexOf(localIds.at(i).toVariant());
            if (at >= 0 && at < b->size() && b->at(at).name != l->at(i).name)
                renames.habits.insert(l->at(i).name, b->at(at).name);
        }
        return WireEnvelope::encode(SyncMerge::habits(*b, *l, *s, sides, renames, origins));
    }
    if (resource == tasksName) {
        const auto [b, l, s] = three(&WireEnvelope::decodeTasksBody);
        if (!b || !l || !s)
            return std::nullopt;
        SyncMerge::Renames renames;
        const auto find = [&](const QString& id) -> qsizetype {
            for (qsizetype j = 0; j < baseIds.size(); ++j)
                if (baseIds.at(j).toObject().value(QStringLiteral("id")).toString() == id)
                    return j;
            return -1;
        };
        for (qsizetype i = 0; i < l->size() && i < localIds.size(); ++i) {
            const QJsonObject mine = localIds.at(i).toObject();
            const qsizetype at = find(mine.value(QStringLiteral("id")).toString());
            if (at < 0 || at >= b->size())
                continue;
            const WireTaskList& was = b->at(at);
            const WireTaskList& now = l->at(i);
            if (was.name != now.name)
                renames.lists.insert(now.name, was.name);
            const QVariantList baseTasks =
                baseIds.at(at).toObject().value(QStringLiteral("tasks")).toArray().toVariantList();
            const QJsonArray myTasks = mine.value(QStringLiteral("tasks")).toArray();
            for (qsizetype t = 0; t < now.tasks.size() && t < myTasks.size(); ++t) {
                const qsizetype k = baseTasks.indexOf(myTasks.at(t).toVariant());
                if (k >= 0 && k < was.tasks.size() &&
                    was.tasks.at(k).header != now.tasks.at(t).header)
                    renames.tasks[now.name].insert(now.tasks.at(t).header, was.tasks.at(k).header);
            }
        }
        return WireEnvelope::encode(SyncMerge::taskLists(*b, *l, *s, sides, renames, origins));
    }
    const auto decode = [&](const QByteArray& body) {
        return body == "null" ? std::nullopt : WireEnvelope::decodePomodoroBody(body, &why);
    };
    const auto state =
        SyncMerge::pomodoro(decode(base.body), decode(local.body), decode(server), sides);
    return state ? WireEnvelope::encode(*state) : QByteArrayLiteral("null");
}

QByteArray SyncEngine::serverIds(const QString& resource, const SyncMerge::Origins& origins,
                                 const QByteArray& server)
{
    ModelContext& ctx = context();
    QString why;
    if (resource == habitsName) {
        const auto theirs = WireEnvelope::decodeHabitsBody(server, &why);
        QStringList ids(theirs ? theirs->size() : 0);
        const QStringList mine = SyncMapping::habitIds(ctx);
        for (qsizetype i = 0; i < origins.records.size() && i < mine.size(); ++i) {
            const qsizetype at = origins.records.at(i);
            if (at >= 0 && at < ids.size())
                ids[at] = mine.at(i);
        }
        return idsJson(ids);
    }
    if (resource == tasksName) {
        const auto theirs = WireEnvelope::decodeTasksBody(server, &why);
        QList<std::pair<QString, QStringList>> ids;
        for (const WireTaskList& list : theirs.value_or(QList<WireTaskList>{}))
            ids.append({QString(), QStringList(list.tasks.size())});
        const auto mine = SyncMapping::taskIds(ctx);
        for (qsizetype i = 0; i < origins.records.size() && i < mine.size(); ++i) {
            const qsizetype at = origins.records.at(i);
            if (at < 0 || at >= ids.size())
                continue;
            ids[at].first = mine.at(i).first;
            const QList<qsizetype> tasks = origins.tasks.value(i);
            for (qsizetype t = 0; t < tasks.size() && t < mine.at(i).second.size(); ++t) {
                const qsizetype k = tasks.at(t);
                if (k >= 0 && k < ids[at].second.size())
                    ids[at].second[k] = mine.at(i).second.at(t);
            }
        }
        return idsJson(ids);
    }
    return {};
}

void SyncEngine::keep(const QString& resource, const SyncBase& base)
{
    QString why;
    if (!m_bases->save(resource, base, &why))
        qWarning("SyncEngine: could not keep the %s merge base (%s)", qPrintable(resource),
                 qPrintable(why));
}

SyncEngine::Outcome SyncEngine::failedRequest(const APIError& error, const QString& resource,
                                              const QString& prefix)
{
    failed(error, prefix);
    if (error.kind() == APIError::Kind::Transport ||
        (error.kind() == APIError::Kind::Http && error.status() >= 500))
        retryLater(resource);
    return Outcome::Failed;
}

std::chrono::milliseconds SyncEngine::backoff(int failures) const
{
    const std::chrono::milliseconds delay = m_firstRetry * (qint64(1) << std::min(failures, 16));
    return std::min(m_longestRetry, delay);
}

void SyncEngine::retryLater(const QString& resource)
{
    if (m_retryPending.contains(resource))
        return;
    const int failures = m_failures.value(resource);
    m_failures.insert(resource, failures + 1);
    const auto delay = backoff(failures);
    m_retryPending.insert(resource);
    QTimer::singleShot(delay, this, [this, resource] {
        m_retryPending.remove(resource);
        if (m_auth.isSignedIn() && m_hasVersions)
            QCoro::connect(syncResource(resource, std::nullopt, false), this, [] {});
    });
}

QCoro::Task<> SyncEngine::syncResource(QString resource, std::optional<APIClient::Tagged> fetched,
                                       bool pull)
{
    if (m_running.contains(resource)) {
        // The run under way reads the local copy afresh on its next try; a
        // change it did not see is sent by the run after it.
        m_again.insert(resource);
        co_return;
    }
    const QPointer<SyncEngine> self(this);
    m_running.insert(resource);
    Outcome outcome = co_await syncVersioned(resource, std::move(fetched), pull);
    while (self && outcome != Outcome::Plain && m_again.remove(resource))
        outcome = co_await syncVersioned(resource, std::nullopt, false);
    if (!self)
        co_return;
    m_running.remove(resource);
    if (outcome == Outcome::Plain) {
        // The server stopped keeping versions: back to plain pushes.
        m_again.remove(resource);
        setHasVersions(false);
        if (!pull) {
            if (resource == habitsName)
                co_await pushHabits();
            else if (resource == tasksName)
                co_await pushTasks();
            else
                co_await pushPomodoro();
        }
    }
}

QCoro::Task<SyncEngine::Outcome>
SyncEngine::syncVersioned(QString resource, std::optional<APIClient::Tagged> fetched, bool pull)
{
    const QPointer<SyncEngine> self(this);
    const QString prefix = QStringLiteral("Push (%1) failed: ").arg(resource);
    const QString server = APIClient::serverURLString();
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        const QDate today = m_clock.now().toLocalTime().date();
        const auto base = m_bases->load(resource, server);
        const auto local = localCopy(resource);
        if (!local) {
            setLastError(prefix + unreadable);
            co_return Outcome::Failed;
        }
        // A copy fetched before this computer's last push landed is older than
        // the base: it is fetched again.
        if (fetched && base && APIClient::versionOf(fetched->etag).value_or(0) < base->version)
            fetched.reset();
        APIClient::Tagged theirs;
        bool fetch = false;
        if (fetched) {
            theirs = *std::exchange(fetched, std::nullopt);
        } else if (pull && attempt == 0) {
            fetch = true;
        } else if (base && local->body == base->body) {
            co_return Outcome::Done;
        } else {
            // Without a base this computer's copy replaces the server's, as a
            // plain push does; the version it makes becomes the base.
            const auto put = co_await m_client.store(
                resource, local->body, base ? std::optional(base->version) : std::nullopt);
            if (!self)
                co_return Outcome::Failed;
            if (put) {
                const auto version = APIClient::versionOf(put.value().etag);
                if (!version)
                    co_return Outcome::Plain;
                keep(resource, {server, *version, local->body, local->ids, today});
                m_failures.remove(resource);
                if (m_lastError.startsWith(prefix))
                    setLastError({});
                co_return Outcome::Done;
            }
            if (!isStale(put.error()))
                co_return failedRequest(put.error(), resource, prefix);
            fetch = true;
        }
        if (fetch) {
            const auto got = co_await m_client.fetch(resource);
            if (!self)
                co_return Outcome::Failed;
            if (!got)
                co_return failedRequest(got.error(), resource, prefix);
            theirs = got.value();
        }

        const auto version = APIClient::versionOf(theirs.etag);
        if (!version)
            co_return Outcome::Plain;
        QString why;
        const auto copy = canonical(resource, theirs.body, &why);
        if (!copy) {
            failed(APIError::decoding(why), {});
            co_return Outcome::Failed;
        }
        // Read again: the user may have changed more while the server answered,
        // and the merge is applied over what is there now.
        const auto current = localCopy(resource);
        if (!current) {
            setLastError(prefix + unreadable);
            co_return Outcome::Failed;
        }
        // A copy equal to this computer's is still merged: the same count on both
        // sides is two sets of raises.
        if (!base || current->body == base->body) {
            // Nothing of this computer's to keep: the server's copy is taken.
            if (*copy != current->body && !applyCopy(resource, *copy))
                co_return Outcome::Failed;
            const auto now = localCopy(resource);
            keep(resource, {server, *version, *copy, now ? now->ids : current->ids, today});
            co_return Outcome::Done;
        }
        QByteArray ids = base->ids;
        if (*copy != base->body) {
            SyncMerge::Origins origins;
            const auto result = merged(resource, *base, *current, *copy, theirs.storedAt, &origins);
            if (!result) {
                setLastError(prefix + QStringLiteral("could not merge the server's copy"));
                co_return Outcome::Failed;
            }
            if (*result != current->body && !applyCopy(resource, *result))
                co_return Outcome::Failed;
            // This computer's records as the server's copy holds them, for the
            // renames of the next merge.
            ids = serverIds(resource, origins, *copy);
        }
        // The server's copy is the new base; the next try pushes the merge on it.
        keep(resource, {server, *version, *copy, ids, today});
        pull = false;
    }
    setLastError(prefix + QStringLiteral("the server's copy kept changing; will try again"));
    retryLater(resource);
    co_return Outcome::Failed;
}

void SyncEngine::setKeepInStep(bool on)
{
    Notify::set(this, m_keepInStep, on, &SyncEngine::keepsInStepChanged);
    if (on)
        QCoro::connect(listen(), this, [] {});
    else
        stopListening();
}

void SyncEngine::listenSoon()
{
    if (!m_bases || !m_keepInStep || m_listening)
        return;
    QTimer::singleShot(feedAfterStart, this, [this] { QCoro::connect(listen(), this, [] {}); });
}

void SyncEngine::stopListening()
{
    delete m_feedScope;
}

QCoro::Task<> SyncEngine::listen()
{
    if (m_listening)
        co_return;
    const QPointer<SyncEngine> self(this);
    m_listening = true;
    const auto end = qScopeGuard([self] {
        if (self)
            self->m_listening = false;
    });
    int failures = 0;
    while (self && m_keepInStep && m_hasVersions && m_auth.isSignedIn()) {
        const QString server = APIClient::serverURLString();
        APIClient::Versions known;
        for (const QString& resource : resources) {
            const auto base = m_bases->load(resource, server);
            known.insert(resource, base ? base->version : 0);
        }
        auto* scope = new QObject(this);
        m_feedScope = scope;
        const auto answer = co_await m_client.changes(known, scope);
        if (!self)
            co_return;
        const bool stopped = !m_feedScope;
        delete m_feedScope;
        if (stopped)
            co_return;
        if (!answer) {
            if (answer.error().kind() == APIError::Kind::Unauthorized) {
                failed(answer.error(), {});
                co_return;
            }
            // The server is away: ask again later, as failed pushes do.
            const auto wait = backoff(failures++);
            co_await Pause(wait);
            continue;
        }
        failures = 0;
        if (!answer.value())
            continue;
        for (const QString& resource : resources) {
            if (answer.value()->value(resource, -1) == known.value(resource))
                continue;
            co_await syncResource(resource, std::nullopt, true);
            if (!self)
                co_return;
        }
        if (m_lastError.isEmpty())
            setLastSyncedAt(m_clock.now());
    }
}
