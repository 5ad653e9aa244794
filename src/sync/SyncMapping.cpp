#include "SyncMapping.h"

#include "EmojiCoding.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "ModelContext.h"
#include "PomodoroConfig.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "WireDate.h"

#include <QSet>

#include <algorithm>

namespace {
const QString orderField = QStringLiteral("order");

template <typename T> void sortByOrder(QList<T*>& records)
{
    std::stable_sort(records.begin(), records.end(),
                     [](const T* a, const T* b) { return a->order() < b->order(); });
}

// A day's result, kept while its habit is replaced.
struct Day
{
    QUuid id;
    QString date;
    qint64 value;
    qint64 maxValue;
    bool completed;
};
} // namespace

std::optional<QList<WireHabit>> SyncMapping::habits(ModelContext& context)
{
    const quint64 failures = context.readFailures();
    QList<Habit*> records = context.fetch<Habit>(FetchRequest::sortedBy(orderField));
    sortByOrder(records);
    QList<WireHabit> out;
    for (const Habit* h : records) {
        out.append(WireHabit{h->icon(), h->name(), h->colorHex(), h->maxValue(), h->currentValue(),
                             WireDate::format(h->firstTrackerDate())});
    }
    if (context.readFailures() != failures)
        return std::nullopt;
    return out;
}

std::optional<QList<WireTaskList>> SyncMapping::taskLists(ModelContext& context)
{
    const quint64 failures = context.readFailures();
    QList<TaskList*> lists = context.fetch<TaskList>(FetchRequest::sortedBy(orderField));
    sortByOrder(lists);
    QList<WireTaskList> out;
    for (const TaskList* list : lists) {
        QList<TaskItem*> tasks = list->tasks();
        sortByOrder(tasks);
        WireTaskList wire;
        wire.name = list->name();
        for (qsizetype i = 0; i < tasks.size(); ++i) {
            const TaskItem* t = tasks.at(i);
            wire.tasks.append(WireTask{t->header(), t->priority(), t->checked(), {}});
            if (!list->highlightedTaskId().isNull() && t->id() == list->highlightedTaskId())
                wire.highlightedTask = i;
        }
        out.append(std::move(wire));
    }
    if (context.readFailures() != failures)
        return std::nullopt;
    return out;
}

QStringList SyncMapping::habitIds(ModelContext& context)
{
    QList<Habit*> records = context.fetch<Habit>(FetchRequest::sortedBy(orderField));
    sortByOrder(records);
    QStringList out;
    for (const Habit* h : records)
        out.append(h->key());
    return out;
}

QList<std::pair<QString, QStringList>> SyncMapping::taskIds(ModelContext& context)
{
    QList<TaskList*> lists = context.fetch<TaskList>(FetchRequest::sortedBy(orderField));
    sortByOrder(lists);
    QList<std::pair<QString, QStringList>> out;
    for (const TaskList* list : lists) {
        QList<TaskItem*> tasks = list->tasks();
        sortByOrder(tasks);
        QStringList ids;
        for (const TaskItem* t : tasks)
            ids.append(t->key());
        out.append({list->key(), ids});
    }
    return out;
}

bool SyncMapping::readable(ModelContext& context)
{
    const quint64 failures = context.readFailures();
    context.fetch<Habit>();
    context.fetch<TaskList>();
    context.fetch<PomodoroConfig>();
    return context.readFailures() == failures;
}

std::optional<PomodoroState> SyncMapping::pomodoro(ModelContext& context)
{
    const QList<PomodoroConfig*> configs = context.fetch<PomodoroConfig>();
    if (configs.isEmpty())
        return std::nullopt;
    const PomodoroConfig* c = configs.first();
    PomodoroState s;
    const QStringList& k = PomodoroState::keys();
    s.setInteger(k[0], c->pomodoroDuration());
    s.setInteger(k[1], c->shortBreakDuration());
    s.setInteger(k[2], c->longBreakDuration());
    s.setInteger(k[3], c->pomodorosForLongBreak());
    s.setBool(k[4], c->autoStart());
    s.setInteger(k[5], c->pomodoroCount());
    s.setInteger(k[6], c->pomodoroTotalCount());
    s.setInteger(k[7], c->shortBreakCount());
    s.setInteger(k[8], c->longBreakCount());
    s.setBool(k[9], c->isBreak());
    s.setBool(k[10], c->isShortBreak());
    s.setBool(k[11], c->isLongBreak());
    s.setDate(k[12], c->firstPomodoroCountDate());
    return s;
}

void SyncMapping::applyTasks(ModelContext& context, const QList<WireTaskList>& lists)
{
    for (TaskList* old : context.fetch<TaskList>())
        context.remove(old); // its tasks go with it
    for (qsizetype i = 0; i < lists.size(); ++i) {
        const WireTaskList& wire = lists.at(i);
        auto* list = new TaskList(wire.name, i);
        context.insert(list);
        QList<TaskItem*> created;
        for (qsizetype j = 0; j < wire.tasks.size(); ++j) {
            const WireTask& w = wire.tasks.at(j);
            auto* task = new TaskItem(w.header, j, list);
            task->setPriority(w.priority);
            task->setChecked(w.checked);
            context.insert(task);
            created.append(task);
        }
        if (wire.highlightedTask && *wire.highlightedTask >= 0 &&
            *wire.highlightedTask < created.size())
            list->setHighlightedTaskId(created.at(*wire.highlightedTask)->id());
    }
}

void SyncMapping::applyHabits(ModelContext& context, const QList<WireHabit>& habits,
                              const QDateTime& now)
{
    QList<Habit*> old = context.fetch<Habit>();
    sortByOrder(old);
    // Copy the history out before the cascade takes it; re-inserted under the
    // same ids, the rows are written as moved.
    QList<std::pair<QString, QList<Day>>> kept;
    for (const Habit* h : std::as_const(old)) {
        QList<Day> days;
        for (const HabitHistory* d : h->history())
            days.append(Day{d->id(), d->date(), d->value(), d->maxValue(), d->completed()});
        if (!days.isEmpty())
            kept.append({h->name(), std::move(days)});
    }
    for (Habit* h : std::as_const(old))
        context.remove(h);

    QList<Habit*> created;
    for (qsizetype i = 0; i < habits.size(); ++i) {
        const WireHabit& w = habits.at(i);
        auto* habit = new Habit(EmojiCoding::decode(w.icon), w.name, w.color, w.maxValue, i);
        habit->setCurrentValue(w.currentValue);
        habit->setFirstTrackerDate(WireDate::parse(w.firstTrackerDate).value_or(now));
        context.insert(habit);
        created.append(habit);
    }

    QHash<Habit*, QSet<QString>> takenDates;
    for (const auto& [name, days] : std::as_const(kept)) {
        const auto target = std::find_if(created.cbegin(), created.cend(),
                                         [&name](const Habit* h) { return h->name() == name; });
        if (target == created.cend())
            continue;
        QSet<QString>& taken = takenDates[*target];
        for (const Day& d : days) {
            // Two old habits of one name: the first one's day wins.
            if (taken.contains(d.date))
                continue;
            taken.insert(d.date);
            auto* record = new HabitHistory(d.date, d.value, d.maxValue, *target);
            record->setId(d.id);
            record->setCompleted(d.completed);
            context.insert(record);
        }
    }
}

namespace {
// Takes the next record of `name` from `byName`, in order; null when none is left.
template <typename T> T* takeNamed(QHash<QString, QList<T*>>& byName, const QString& name)
{
    auto found = byName.find(name);
    return found == byName.end() || found->isEmpty() ? nullptr : found->takeFirst();
}

template <typename T> QHash<QString, QList<T*>> byName(QList<T*> records)
{
    sortByOrder(records);
    QHash<QString, QList<T*>> out;
    for (T* r : records)
        out[r->name()].append(r);
    return out;
}
} // namespace

void SyncMapping::updateHabits(ModelContext& context, const QList<WireHabit>& habits,
                               const QDateTime& now)
{
    const QList<Habit*> old = context.fetch<Habit>();
    auto named = byName(old);
    QList<Habit*> matched(habits.size(), nullptr);
    for (qsizetype i = 0; i < habits.size(); ++i)
        matched[i] = takeNamed(named, habits.at(i).name);
    // A habit renamed elsewhere keeps its identity and history: the one left
    // over that began tracking on the same day, when only one did.
    QList<Habit*> left;
    for (const auto& same : std::as_const(named))
        left += same;
    for (qsizetype i = 0; i < habits.size(); ++i) {
        if (matched.at(i))
            continue;
        QList<Habit*> candidates;
        for (Habit* h : std::as_const(left))
            if (WireDate::format(h->firstTrackerDate()) == habits.at(i).firstTrackerDate)
                candidates.append(h);
        if (candidates.size() == 1) {
            matched[i] = candidates.front();
            left.removeOne(candidates.front());
        }
    }

    QSet<Habit*> kept;
    for (qsizetype i = 0; i < habits.size(); ++i) {
        const WireHabit& w = habits.at(i);
        Habit* habit = matched.at(i);
        if (!habit) {
            habit = new Habit(EmojiCoding::decode(w.icon), w.name, w.color, w.maxValue, i);
            context.insert(habit);
        }
        habit->setName(w.name);
        habit->setIcon(EmojiCoding::decode(w.icon));
        habit->setColorHex(w.color);
        habit->setMaxValue(w.maxValue);
        habit->setOrder(i);
        habit->setCurrentValue(w.currentValue);
        habit->setFirstTrackerDate(WireDate::parse(w.firstTrackerDate).value_or(now));
        kept.insert(habit);
    }
    for (Habit* h : old)
        if (!kept.contains(h))
            context.remove(h);
}

void SyncMapping::updateTasks(ModelContext& context, const QList<WireTaskList>& lists)
{
    const QList<TaskList*> old = context.fetch<TaskList>();
    auto named = byName(old);
    QSet<TaskList*> kept;
    for (qsizetype i = 0; i < lists.size(); ++i) {
        const WireTaskList& wire = lists.at(i);
        TaskList* list = takeNamed(named, wire.name);
        if (!list) {
            list = new TaskList(wire.name, i);
            context.insert(list);
        }
        list->setOrder(i);
        kept.insert(list);

        // Tasks by their text, the n-th of one text with the n-th.
        QHash<QString, QList<TaskItem*>> byText;
        QList<TaskItem*> tasks = list->tasks();
        sortByOrder(tasks);
        for (TaskItem* t : tasks)
            byText[t->header()].append(t);
        QSet<TaskItem*> keptTasks;
        QList<TaskItem*> placed;
        for (qsizetype j = 0; j < wire.tasks.size(); ++j) {
            const WireTask& w = wire.tasks.at(j);
            TaskItem* task = takeNamed(byText, w.header);
            if (!task) {
                task = new TaskItem(w.header, j, list);
                context.insert(task);
            }
            task->setOrder(j);
            task->setPriority(w.priority);
            task->setChecked(w.checked);
            keptTasks.insert(task);
            placed.append(task);
        }
        for (TaskItem* t : tasks)
            if (!keptTasks.contains(t))
                context.remove(t);
        const qint64 focus = wire.highlightedTask.value_or(-1);
        list->setHighlightedTaskId(focus >= 0 && focus < placed.size() ? placed.at(focus)->id()
                                                                       : QUuid());
    }
    for (TaskList* l : old)
        if (!kept.contains(l))
            context.remove(l);
}

void SyncMapping::applyPomodoro(ModelContext& context, const std::optional<PomodoroState>& state,
                                const QDateTime& now)
{
    if (!state)
        return;
    const QList<PomodoroConfig*> configs = context.fetch<PomodoroConfig>();
    PomodoroConfig* c = configs.isEmpty() ? nullptr : configs.first();
    if (!c) {
        c = PomodoroConfig::createDefault(now);
        context.insert(c);
    }
    const QStringList& k = PomodoroState::keys();
    c->setPomodoroDuration(state->integer(k[0], 25));
    c->setShortBreakDuration(state->integer(k[1], 5));
    c->setLongBreakDuration(state->integer(k[2], 15));
    c->setPomodorosForLongBreak(state->integer(k[3], 4));
    c->setAutoStart(state->boolean(k[4]));
    c->setPomodoroCount(state->integer(k[5], 0));
    c->setPomodoroTotalCount(state->integer(k[6], 0));
    c->setShortBreakCount(state->integer(k[7], 0));
    c->setLongBreakCount(state->integer(k[8], 0));
    c->setIsBreak(state->boolean(k[9]));
    c->setIsShortBreak(state->boolean(k[10]));
    c->setIsLongBreak(state->boolean(k[11]));
    if (const auto when = state->date(k[12]))
        c->setFirstPomodoroCountDate(*when);
}
