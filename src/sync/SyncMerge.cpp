#include "SyncMerge.h"

#include <QSet>

#include <algorithm>

namespace {

// One record with the key that matches it across the three copies: its name
// (as of the base) and which of the records of that name it is.
template <typename R> struct Keyed
{
    QString key;
    R value;
};

template <typename R> using KeyedList = QList<Keyed<R>>;

template <typename R, typename NameOf>
KeyedList<R> keyed(const QList<R>& records, NameOf nameOf, const QHash<QString, QString>& renamed)
{
    QHash<QString, int> seen;
    KeyedList<R> out;
    out.reserve(records.size());
    for (const R& record : records) {
        const QString name = renamed.value(nameOf(record), nameOf(record));
        out.append({name + QChar(0x1f) + QString::number(seen[name]++), record});
    }
    return out;
}

template <typename R> const R* find(const KeyedList<R>& list, const QString& key)
{
    for (const auto& k : list)
        if (k.key == key)
            return &k.value;
    return nullptr;
}

template <typename R> QStringList keysOf(const KeyedList<R>& list)
{
    QStringList out;
    for (const auto& k : list)
        out.append(k.key);
    return out;
}

// A server-side rename looks like a base record gone and a new one come: when
// exactly one of each is left and `same` says nothing else differs, the new
// one takes the old one's key.
template <typename R, typename Same>
void matchRename(const KeyedList<R>& base, KeyedList<R>& side, Same same)
{
    QList<const Keyed<R>*> gone;
    for (const auto& b : base)
        if (!find(side, b.key))
            gone.append(&b);
    QList<Keyed<R>*> come;
    for (auto& s : side)
        if (!find(base, s.key))
            come.append(&s);
    if (gone.size() == 1 && come.size() == 1 && same(gone.front()->value, come.front()->value))
        come.front()->key = gone.front()->key;
}

// The side that changed a value; the later one when both did.
template <typename T>
T pick(const T& base, const T& local, const T& server, const SyncMerge::Sides& sides)
{
    if (local == base)
        return server;
    if (server == base || server == local)
        return local;
    return sides.localChangedAt > sides.serverChangedAt ? local : server;
}

template <typename T>
T pick(const T* base, const T& local, const T& server, const SyncMerge::Sides& sides)
{
    if (!base)
        return sides.localChangedAt > sides.serverChangedAt ? local : server;
    return pick(*base, local, server, sides);
}

// Orders the merged keys: the order of the side that reordered the records
// both hold (the later one when both did), with each side's new records after
// the record they follow there.
template <typename R>
QStringList mergedOrder(const KeyedList<R>& base, const KeyedList<R>& local,
                        const KeyedList<R>& server, const QSet<QString>& kept,
                        const SyncMerge::Sides& sides)
{
    const auto common = [&](const KeyedList<R>& side) {
        QStringList out;
        for (const auto& k : side)
            if (find(base, k.key) && kept.contains(k.key))
                out.append(k.key);
        return out;
    };
    const auto baseOrder = [&](const QStringList& keys) {
        QStringList out;
        for (const auto& b : base)
            if (keys.contains(b.key))
                out.append(b.key);
        return out;
    };
    const QStringList localCommon = common(local);
    const QStringList serverCommon = common(server);
    const bool localMoved = localCommon != baseOrder(localCommon);
    const bool serverMoved = serverCommon != baseOrder(serverCommon);
    const bool localLeads =
        localMoved && (!serverMoved || sides.localChangedAt > sides.serverChangedAt);
    const KeyedList<R>& first = localLeads ? local : server;
    const KeyedList<R>& second = localLeads ? server : local;

    QStringList order;
    for (const auto& k : first)
        if (kept.contains(k.key))
            order.append(k.key);
    // Records the leading side lacks: after their predecessor on their side.
    const auto place = [&](const KeyedList<R>& side) {
        QString previous;
        for (const auto& k : side) {
            if (kept.contains(k.key) && !order.contains(k.key)) {
                const qsizetype at = previous.isEmpty() ? 0 : order.indexOf(previous) + 1;
                order.insert(at, k.key);
            }
            if (order.contains(k.key))
                previous = k.key;
        }
    };
    place(second);
    return order;
}

// Merges keyed records: present on both sides, merged by `merge`; gone on one
// side, gone unless the other side edited it after the deletion; new on one or
// both sides, kept.
template <typename R, typename Merge>
KeyedList<R> mergeRecords(const KeyedList<R>& base, const KeyedList<R>& local,
                          const KeyedList<R>& server, const SyncMerge::Sides& sides, Merge merge)
{
    QHash<QString, R> merged;
    QSet<QString> kept;
    QStringList keys = keysOf(base) + keysOf(local) + keysOf(server);
    keys.removeDuplicates();
    for (const QString& key : keys) {
        const R* b = find(base, key);
        const R* l = find(local, key);
        const R* s = find(server, key);
        std::optional<R> out;
        if (l && s)
            out = merge(b, *l, *s);
        else if (l && (!b || (!(*l == *b) && sides.localChangedAt > sides.serverChangedAt)))
            out = *l;
        else if (s && (!b || (!(*s == *b) && sides.serverChangedAt >= sides.localChangedAt)))
            out = *s;
        if (out) {
            merged.insert(key, *out);
            kept.insert(key);
        }
    }
    KeyedList<R> result;
    for (const QString& key : mergedOrder(base, local, server, kept, sides))
        result.append({key, merged.value(key)});
    return result;
}

template <typename R> QList<R> valuesOf(const KeyedList<R>& list)
{
    QList<R> out;
    out.reserve(list.size());
    for (const auto& k : list)
        out.append(k.value);
    return out;
}

// Where each merged record sits in the server's copy, or -1.
template <typename R>
QList<qsizetype> originsIn(const KeyedList<R>& merged, const KeyedList<R>& server)
{
    const QStringList serverKeys = keysOf(server);
    QList<qsizetype> out;
    for (const auto& k : merged)
        out.append(serverKeys.indexOf(k.key));
    return out;
}

const auto habitName = [](const WireHabit& h) { return h.name; };
const auto listName = [](const WireTaskList& l) { return l.name; };
const auto taskText = [](const WireTask& t) { return t.header; };

QStringList headersOf(const WireTaskList& list)
{
    QStringList out;
    for (const auto& t : list.tasks)
        out.append(t.header);
    return out;
}

// The focus task's key in its list, or empty.
QString focusKey(const WireTaskList* list, const KeyedList<WireTask>& tasks)
{
    if (!list || !list->highlightedTask)
        return {};
    const qint64 at = *list->highlightedTask;
    return at >= 0 && at < tasks.size() ? tasks.at(at).key : QString();
}

WireTask mergeTask(const WireTask* base, const WireTask& local, const WireTask& server,
                   const SyncMerge::Sides& sides)
{
    WireTask out = local;
    out.header = base ? pick(base->header, local.header, server.header, sides) : local.header;
    out.priority =
        pick(base ? base->priority : std::nullopt, local.priority, server.priority, sides);
    out.checked = base ? pick(base->checked, local.checked, server.checked, sides)
                       : (local.checked || server.checked);
    return out;
}

} // namespace

qint64 SyncMerge::count(qint64 base, qint64 local, qint64 server, const Sides& sides)
{
    const QDate day = std::max(sides.localDay, sides.serverDay);
    const auto raised = [&](QDate sideDay, qint64 value) -> qint64 {
        if (sideDay != day)
            return 0;
        return sideDay == sides.baseDay ? value - base : value;
    };
    const qint64 total = (sides.baseDay == day ? base : 0) + raised(sides.localDay, local) +
                         raised(sides.serverDay, server);
    return std::max<qint64>(0, total);
}

QList<WireHabit> SyncMerge::habits(const QList<WireHabit>& base, const QList<WireHabit>& local,
                                   const QList<WireHabit>& server, const Sides& sides,
                                   const Renames& renames, Origins* origins)
{
    const auto b = keyed(base, habitName, {});
    const auto l = keyed(local, habitName, renames.habits);
    auto s = keyed(server, habitName, {});
    matchRename(b, s, [](const WireHabit& was, const WireHabit& now) {
        return was.icon == now.icon && was.color == now.color && was.maxValue == now.maxValue &&
               was.firstTrackerDate == now.firstTrackerDate;
    });
    const auto merged = mergeRecords(
        b, l, s, sides, [&](const WireHabit* was, const WireHabit& mine, const WireHabit& theirs) {
            const WireHabit none;
            const WireHabit& from = was ? *was : none;
            WireHabit out;
            out.name = was ? pick(was->name, mine.name, theirs.name, sides) : mine.name;
            out.icon = pick(was ? &was->icon : nullptr, mine.icon, theirs.icon, sides);
            out.color = pick(was ? &was->color : nullptr, mine.color, theirs.color, sides);
            out.maxValue =
                pick(was ? &was->maxValue : nullptr, mine.maxValue, theirs.maxValue, sides);
            out.firstTrackerDate = pick(was ? &was->firstTrackerDate : nullptr,
                                        mine.firstTrackerDate, theirs.firstTrackerDate, sides);
            out.currentValue =
                count(from.currentValue, mine.currentValue, theirs.currentValue, sides);
            return out;
        });
    if (origins)
        origins->records = originsIn(merged, s);
    return valuesOf(merged);
}

QList<WireTaskList> SyncMerge::taskLists(const QList<WireTaskList>& base,
                                         const QList<WireTaskList>& local,
                                         const QList<WireTaskList>& server, const Sides& sides,
                                         const Renames& renames, Origins* origins)
{
    const auto b = keyed(base, listName, {});
    const auto l = keyed(local, listName, renames.lists);
    auto s = keyed(server, listName, {});
    matchRename(b, s, [](const WireTaskList& was, const WireTaskList& now) {
        return headersOf(was) == headersOf(now);
    });
    const auto sameTask = [](const WireTask& was, const WireTask& now) {
        return was.checked == now.checked && was.priority == now.priority;
    };
    // Per list merged from both sides (by this computer's record): where its
    // tasks sit in the server's list.
    QHash<const WireTaskList*, QList<qsizetype>> taskOrigins;
    const auto merged = mergeRecords(
        b, l, s, sides,
        [&](const WireTaskList* was, const WireTaskList& mine, const WireTaskList& theirs) {
            const auto tb = was ? keyed(was->tasks, taskText, {}) : KeyedList<WireTask>{};
            const auto tl = keyed(mine.tasks, taskText, renames.tasks.value(mine.name));
            auto ts = keyed(theirs.tasks, taskText, {});
            matchRename(tb, ts, sameTask);

            WireTaskList out;
            out.name = was ? pick(was->name, mine.name, theirs.name, sides) : mine.name;
            const auto merged = mergeRecords(
                tb, tl, ts, sides, [&](const WireTask* wt, const WireTask& lt, const WireTask& st) {
                    return mergeTask(wt, lt, st, sides);
                });
            out.tasks = valuesOf(merged);
            taskOrigins.insert(&mine, originsIn(merged, ts));

            // The focus follows the side that moved it, by the task's key.
            const QString focus =
                pick(focusKey(was, tb), focusKey(&mine, tl), focusKey(&theirs, ts), sides);
            const qsizetype at = focus.isEmpty() ? -1 : keysOf(merged).indexOf(focus);
            if (at >= 0)
                out.highlightedTask = at;
            return out;
        });
    if (origins) {
        origins->records = originsIn(merged, s);
        origins->tasks.clear();
        for (qsizetype i = 0; i < merged.size(); ++i) {
            const qsizetype at = origins->records.at(i);
            const WireTaskList* mine = find(l, merged.at(i).key);
            QList<qsizetype> tasks;
            if (mine && at >= 0) {
                tasks = taskOrigins.value(mine);
            } else if (at >= 0) {
                // The server's list as it stands.
                for (qsizetype t = 0; t < merged.at(i).value.tasks.size(); ++t)
                    tasks.append(t);
            } else {
                tasks.fill(-1, merged.at(i).value.tasks.size());
            }
            origins->tasks.append(tasks);
        }
    }
    return valuesOf(merged);
}

std::optional<PomodoroState> SyncMerge::pomodoro(const std::optional<PomodoroState>& base,
                                                 const std::optional<PomodoroState>& local,
                                                 const std::optional<PomodoroState>& server,
                                                 const Sides& sides)
{
    if (!local || !server)
        return local ? local : server;
    const PomodoroState from = base.value_or(PomodoroState{});
    // The day counts belong to the day each copy started counting.
    static const QString countDay = QStringLiteral("firstPomodoroCountDate");
    const auto dayOf = [](const PomodoroState& state) {
        const auto when = state.date(countDay);
        return when ? when->toLocalTime().date() : QDate();
    };
    Sides counted = sides;
    counted.baseDay = dayOf(from);
    counted.localDay = dayOf(*local);
    counted.serverDay = dayOf(*server);
    static const QStringList dailyCounts{QStringLiteral("pomodoroTotalCount"),
                                         QStringLiteral("shortBreakCount"),
                                         QStringLiteral("longBreakCount")};

    PomodoroState out;
    QStringList keys = PomodoroState::keys();
    for (const auto* state : {&from, &*local, &*server})
        for (const QString& key : state->toJson().keys())
            if (!keys.contains(key))
                keys.append(key);
    for (const QString& key : keys) {
        if (dailyCounts.contains(key)) {
            out.setInteger(key, count(from.integer(key, 0), local->integer(key, 0),
                                      server->integer(key, 0), counted));
            continue;
        }
        if (key == countDay) {
            const auto& newer = counted.localDay > counted.serverDay ? *local : *server;
            if (newer.contains(key))
                out.setValue(key, newer.value(key));
            continue;
        }
        const auto valueOf = [&](const PomodoroState& state) {
            return state.contains(key) ? std::optional(state.value(key)) : std::nullopt;
        };
        const auto value = pick(valueOf(from), valueOf(*local), valueOf(*server), sides);
        if (value)
            out.setValue(key, *value);
    }
    return out;
}
