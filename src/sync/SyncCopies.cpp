#include "SyncCopies.h"

#include "Clock.h"
#include "DataStore.h"
#include "ModelContext.h"
#include "SyncBase.h"
#include "SyncMapping.h"
#include "WireEnvelope.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <tuple>

const QString SyncCopies::habitsName = QStringLiteral("habits");
const QString SyncCopies::tasksName = QStringLiteral("tasks");
const QString SyncCopies::pomodoroName = QStringLiteral("pomodoro");
const QStringList SyncCopies::resources{habitsName, tasksName, pomodoroName};
const QString SyncCopies::unreadable = QStringLiteral("could not read local data");

namespace {
// How far the server's clock may be off this computer's without moving a count
// to another day.
constexpr qint64 clockSlack = 5 * 60;

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

// A habit this computer renamed is known by its identity.
SyncMerge::Renames habitRenames(const QList<WireHabit>& base, const QList<WireHabit>& local,
                                const QJsonArray& baseIds, const QJsonArray& localIds)
{
    SyncMerge::Renames renames;
    for (qsizetype i = 0; i < local.size() && i < localIds.size(); ++i) {
        const qsizetype at = baseIds.toVariantList().indexOf(localIds.at(i).toVariant());
        if (at >= 0 && at < base.size() && base.at(at).name != local.at(i).name)
            renames.habits.insert(local.at(i).name, base.at(at).name);
    }
    return renames;
}

// So are the lists and tasks this computer renamed.
SyncMerge::Renames taskRenames(const QList<WireTaskList>& base, const QList<WireTaskList>& local,
                               const QJsonArray& baseIds, const QJsonArray& localIds)
{
    SyncMerge::Renames renames;
    const auto find = [&](const QString& id) -> qsizetype {
        for (qsizetype j = 0; j < baseIds.size(); ++j)
            if (baseIds.at(j).toObject().value(QStringLiteral("id")).toString() == id)
                return j;
        return -1;
    };
    for (qsizetype i = 0; i < local.size() && i < localIds.size(); ++i) {
        const QJsonObject mine = localIds.at(i).toObject();
        const qsizetype at = find(mine.value(QStringLiteral("id")).toString());
        if (at < 0 || at >= base.size())
            continue;
        const WireTaskList& was = base.at(at);
        const WireTaskList& now = local.at(i);
        if (was.name != now.name)
            renames.lists.insert(now.name, was.name);
        const QVariantList baseTasks =
            baseIds.at(at).toObject().value(QStringLiteral("tasks")).toArray().toVariantList();
        const QJsonArray myTasks = mine.value(QStringLiteral("tasks")).toArray();
        for (qsizetype t = 0; t < now.tasks.size() && t < myTasks.size(); ++t) {
            const qsizetype k = baseTasks.indexOf(myTasks.at(t).toVariant());
            if (k >= 0 && k < was.tasks.size() && was.tasks.at(k).header != now.tasks.at(t).header)
                renames.tasks[now.name].insert(now.tasks.at(t).header, was.tasks.at(k).header);
        }
    }
    return renames;
}
} // namespace

SyncCopies::SyncCopies(DataStore& store, const Clock& clock)
    : m_store(store)
    , m_clock(clock)
{}

ModelContext& SyncCopies::context()
{
    return m_store.mainContext();
}

std::optional<SyncCopies::LocalCopy> SyncCopies::localCopy(const QString& resource)
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

std::optional<QByteArray> SyncCopies::canonical(const QString& resource, const QByteArray& envelope,
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

bool SyncCopies::readable()
{
    return SyncMapping::readable(context());
}

bool SyncCopies::apply(const QString& resource, const QByteArray& body, QString* why)
{
    ModelContext& ctx = context();
    if (resource == habitsName) {
        if (const auto habits = WireEnvelope::decodeHabitsBody(body, why))
            SyncMapping::updateHabits(ctx, *habits, m_clock.now());
    } else if (resource == tasksName) {
        if (const auto lists = WireEnvelope::decodeTasksBody(body, why))
            SyncMapping::updateTasks(ctx, *lists);
    } else if (body != "null") {
        SyncMapping::applyPomodoro(ctx, WireEnvelope::decodePomodoroBody(body, why), m_clock.now());
    }
    return why->isEmpty() && ctx.save(why);
}

void SyncCopies::noteLocalChange(const QString& resource, const QDateTime& when)
{
    m_localChangedAt.insert(resource, when);
}

std::optional<QByteArray> SyncCopies::merged(const QString& resource, const SyncBase& base,
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
        const SyncMerge::Renames renames = habitRenames(*b, *l, baseIds, localIds);
        return WireEnvelope::encode(SyncMerge::habits(*b, *l, *s, sides, renames, origins));
    }
    if (resource == tasksName) {
        const auto [b, l, s] = three(&WireEnvelope::decodeTasksBody);
        if (!b || !l || !s)
            return std::nullopt;
        const SyncMerge::Renames renames = taskRenames(*b, *l, baseIds, localIds);
        return WireEnvelope::encode(SyncMerge::taskLists(*b, *l, *s, sides, renames, origins));
    }
    const auto decode = [&](const QByteArray& body) {
        return body == "null" ? std::nullopt : WireEnvelope::decodePomodoroBody(body, &why);
    };
    const auto state =
        SyncMerge::pomodoro(decode(base.body), decode(local.body), decode(server), sides);
    return state ? WireEnvelope::encode(*state) : QByteArrayLiteral("null");
}

QByteArray SyncCopies::serverIds(const QString& resource, const SyncMerge::Origins& origins,
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
