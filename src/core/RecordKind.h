#pragma once

#include <QtGlobal>

// The persisted record types, in the order the store registers them.
enum class RecordKind : quint8 {
    PomodoroConfig,
    TaskList,
    TaskItem,
    Habit,
    HabitHistory,
    WidgetPlacement,
    FocusSession,
};

inline constexpr int RecordKindCount = 7;
