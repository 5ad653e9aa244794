#include "StoreSchema.h"

#include <algorithm>

namespace {
// The first schema.
const QList<const char*>& initial()
{
    // Tables mirror the record types field by field (see RecordTable); foreign keys
    // back the cascades the context performs, and the history indexes keep "today"
    // and "this habit's days" cheap however many years of history there are.
    static const QList<const char*> all = {
        R"(CREATE TABLE pomodoro_config (
        "id" TEXT PRIMARY KEY NOT NULL,
        "pomodoroDuration" INTEGER NOT NULL,
        "shortBreakDuration" INTEGER NOT NULL,
        "longBreakDuration" INTEGER NOT NULL,
        "pomodorosForLongBreak" INTEGER NOT NULL,
        "autoStart" INTEGER NOT NULL,
        "pomodoroCount" INTEGER NOT NULL,
        "pomodoroTotalCount" INTEGER NOT NULL,
        "shortBreakCount" INTEGER NOT NULL,
        "longBreakCount" INTEGER NOT NULL,
        "isBreak" INTEGER NOT NULL,
        "isShortBreak" INTEGER NOT NULL,
        "isLongBreak" INTEGER NOT NULL,
        "firstPomodoroCountDate" REAL))",
        R"(CREATE TABLE task_list (
        "id" TEXT PRIMARY KEY NOT NULL,
        "name" TEXT,
        "order" INTEGER NOT NULL,
        "highlightedTaskId" TEXT))",
        R"(CREATE TABLE task_item (
        "id" TEXT PRIMARY KEY NOT NULL,
        "header" TEXT,
        "priority" INTEGER,
        "checked" INTEGER NOT NULL,
        "order" INTEGER NOT NULL,
        "listId" TEXT REFERENCES task_list("id") ON DELETE CASCADE))",
        R"(CREATE INDEX task_item_list ON task_item("listId"))",
        R"(CREATE TABLE habit (
        "id" TEXT PRIMARY KEY NOT NULL,
        "icon" TEXT,
        "name" TEXT,
        "colorHex" TEXT,
        "maxValue" INTEGER NOT NULL,
        "currentValue" INTEGER NOT NULL,
        "firstTrackerDate" REAL,
        "order" INTEGER NOT NULL))",
        R"(CREATE TABLE habit_history (
        "id" TEXT PRIMARY KEY NOT NULL,
        "date" TEXT,
        "value" INTEGER NOT NULL,
        "maxValue" INTEGER NOT NULL,
        "completed" INTEGER NOT NULL,
        "habitId" TEXT REFERENCES habit("id") ON DELETE CASCADE))",
        // Covering: a day's records of every habit sit together, so showing today reads a
        // page or two instead of one page per habit.
        R"(CREATE INDEX habit_history_date ON habit_history(
        "date", "habitId", "value", "maxValue", "completed", "id"))",
        R"(CREATE INDEX habit_history_habit ON habit_history("habitId"))",
        R"(CREATE TABLE widget_placement (
        "widgetId" TEXT PRIMARY KEY NOT NULL,
        "mode" TEXT,
        "inStatusBar" INTEGER NOT NULL,
        "inFloating" INTEGER NOT NULL,
        "desktopFrameJSON" TEXT,
        "alwaysOnTop" INTEGER NOT NULL))",
    };
    return all;
}

// What each later version adds, by the version it makes. Steps only add: a store is
// upgraded in place, and an older Tidewell refuses the result rather than misread it.
const QList<QList<const char*>>& steps()
{
    static const QList<QList<const char*>> all = {
        {}, // version 1 is the initial schema
        {
            // Focus sessions: the timer's history, local only.
            R"(CREATE TABLE focus_session (
        "id" TEXT PRIMARY KEY NOT NULL,
        "phase" TEXT,
        "startedAt" REAL,
        "day" TEXT,
        "endedAt" REAL,
        "plannedSeconds" INTEGER NOT NULL,
        "elapsedSeconds" INTEGER NOT NULL,
        "outcome" TEXT))",
            R"(CREATE INDEX focus_session_started ON focus_session("startedAt"))",
            // The days that reached their target, for streaks over years of history:
            // a fraction of the table, in date order.
            R"(CREATE INDEX habit_history_reached ON habit_history(
        "date", "habitId", "value", "maxValue") WHERE "value" >= "maxValue" AND "maxValue" > 0)",
            // Covering: the statistics per day read the index alone.
            R"(CREATE INDEX focus_session_day ON focus_session(
        "day", "phase", "outcome", "elapsedSeconds"))",
        },
        {
            // Per resource, what this computer and a versioned server last agreed
            // on: the merge base when both sides changed it since.
            R"(CREATE TABLE sync_base (
        "resource" TEXT PRIMARY KEY NOT NULL,
        "server" TEXT NOT NULL,
        "version" INTEGER NOT NULL,
        "body" BLOB NOT NULL,
        "ids" TEXT NOT NULL,
        "day" TEXT NOT NULL))",
        },
    };
    return all;
}

QList<const char*> between(int from, int to)
{
    Q_ASSERT(steps().size() == StoreSchema::Version);
    QList<const char*> added;
    for (int v = std::max(from, 1) + 1; v <= std::min(to, StoreSchema::Version); ++v)
        added += steps().at(v - 1);
    return added;
}
} // namespace

QList<const char*> StoreSchema::statements(int version)
{
    return initial() + between(1, version);
}

QList<const char*> StoreSchema::upgrade(int fromVersion)
{
    return between(fromVersion, Version);
}
