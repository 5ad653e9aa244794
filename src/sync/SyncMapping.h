#pragma once

#include "PomodoroState.h"
#include "WireHabit.h"
#include "WireTaskList.h"

#include <QList>
#include <QStringList>

#include <optional>

class ModelContext;

// Between the store's records and the wire records. The to-wire side reads;
// the apply side replaces the local habits and task lists with pulled ones.
class SyncMapping
{
public:
    SyncMapping() = delete;

    // Sorted by `order`, each list's tasks too. Absent when the store could not be
    // read: what is in memory then may be only part of it, and sending that would
    // erase the rest from the server.
    static std::optional<QList<WireHabit>> habits(ModelContext& context);
    static std::optional<QList<WireTaskList>> taskLists(ModelContext& context);
    // Absent when there is no timer configuration, or it could not be read.
    static std::optional<PomodoroState> pomodoro(ModelContext& context);

    // The local identities of what habits() and taskLists() return, in their
    // order: each habit's id; each list's id with its tasks' ids.
    static QStringList habitIds(ModelContext& context);
    static QList<std::pair<QString, QStringList>> taskIds(ModelContext& context);

    // Whether the records a pull replaces can be read; a pull applied over a store
    // that cannot be read would add to what it cannot see instead of replacing it.
    static bool readable(ModelContext& context);

    // Replaces every list (and its tasks) with `lists`, in received order.
    static void applyTasks(ModelContext& context, const QList<WireTaskList>& lists);
    // Replaces every habit with `habits`, in received order. Daily history moves
    // to the first pulled habit of the same name; the rest goes with its habit.
    // A habit without a readable first day tracks from `now`.
    static void applyHabits(ModelContext& context, const QList<WireHabit>& habits,
                            const QDateTime& now);
    // As applyHabits() and applyTasks(), but records matching pulled ones (by
    // name, tasks by their text in their list; the n-th of a name with the n-th)
    // keep their identity, updated in place: what the user has open stays open.
    static void updateHabits(ModelContext& context, const QList<WireHabit>& habits,
                             const QDateTime& now);
    static void updateTasks(ModelContext& context, const QList<WireTaskList>& lists);
    // Overwrites the timer configuration (one counting from `now` when there is
    // none); absent state changes nothing.
    static void applyPomodoro(ModelContext& context, const std::optional<PomodoroState>& state,
                              const QDateTime& now);
};
