#pragma once

#include "PomodoroState.h"
#include "WireHabit.h"
#include "WireTaskList.h"

#include <QDate>
#include <QDateTime>
#include <QHash>
#include <QList>

#include <optional>

// Three-way merges of whole resources: the copy both sides last agreed on (the
// base), this computer's copy and the server's. The wire carries no identities,
// so records are matched by name (habits, lists) and by text within a list
// (tasks); the rules are in docs/sync.md.
class SyncMerge
{
public:
    SyncMerge() = delete;

    // When each side last changed the resource, and the day each copy's daily
    // counts belong to. Where both sides changed one field, the later change
    // wins; a tie goes to the server, whose copy landed first.
    struct Sides
    {
        QDateTime localChangedAt;
        QDateTime serverChangedAt;
        QDate baseDay;
        QDate localDay;
        QDate serverDay;
    };

    // This computer knows which of its records were renamed since the base: the
    // current name (list name, task text) mapped to the base's. Renames on the
    // server are recognised when nothing else about the record changed.
    struct Renames
    {
        QHash<QString, QString> habits;
        QHash<QString, QString> lists;
        // Per current list name: current task text to the base's.
        QHash<QString, QHash<QString, QString>> tasks;
    };

    // Where each merged record came from in the server's copy (-1: not there),
    // so that the server's copy can name this computer's records after a merge.
    struct Origins
    {
        QList<qsizetype> records;
        // Per merged list, for each of its tasks.
        QList<QList<qsizetype>> tasks;
    };

    static QList<WireHabit> habits(const QList<WireHabit>& base, const QList<WireHabit>& local,
                                   const QList<WireHabit>& server, const Sides& sides,
                                   const Renames& renames = {}, Origins* origins = nullptr);
    static QList<WireTaskList> taskLists(const QList<WireTaskList>& base,
                                         const QList<WireTaskList>& local,
                                         const QList<WireTaskList>& server, const Sides& sides,
                                         const Renames& renames = {}, Origins* origins = nullptr);
    // Settings key by key; the day's counts as count() adds them, on the day
    // each copy started counting. A side without a timer state leaves the other's.
    static std::optional<PomodoroState> pomodoro(const std::optional<PomodoroState>& base,
                                                 const std::optional<PomodoroState>& local,
                                                 const std::optional<PomodoroState>& server,
                                                 const Sides& sides);

    // Today's count after both sides' raises: each side adds what it counted on
    // the newest day either side has reached; raises made on an older day were
    // counted before that day's reset and belong to that day's history. Never
    // below zero.
    static qint64 count(qint64 base, qint64 local, qint64 server, const Sides& sides);
};
