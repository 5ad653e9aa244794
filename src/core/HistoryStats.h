#pragma once

#include <QDate>
#include <QList>
#include <QMap>

// Streaks, rates and focus totals over recorded days. Days are calendar dates, never
// spans of 24 hours, so month ends, leap days and clock changes cost nothing.
class HistoryStats
{
public:
    HistoryStats() = delete;

    // One habit's result on one day.
    struct Day
    {
        qint64 value = 0;
        qint64 target = 0;
        // A day counts when its value reached that day's target.
        bool reached() const { return target > 0 && value >= target; }
    };
    using Days = QMap<QDate, Day>;

    // Consecutive reached days ending today, or yesterday while today is still open.
    static int currentStreak(const Days& days, QDate today);
    static int bestStreak(const Days& days);
    // The share (0 to 1) of the `span` days ending today on which the target was
    // reached. Days before `since` (when tracking began) do not count, nor does today
    // until it is reached; no day to count gives 0.
    static double completionRate(const Days& days, QDate today, int span, QDate since);

    struct FocusDay
    {
        int sessions = 0;        // completed focus sessions
        qint64 focusSeconds = 0; // time spent in focus phases, finished or not
    };
    using FocusDays = QMap<QDate, FocusDay>;

    // Completed focus sessions per day for the `count` days ending `today`, oldest first.
    static QList<int> sessionsPerDay(const FocusDays& days, QDate today, int count);
    // Completed focus sessions per calendar month, for the `count` months ending with
    // today's, oldest first.
    static QList<int> sessionsPerMonth(const FocusDays& days, QDate today, int count);
    // Focus seconds per week (weeks start on Monday) for the `count` weeks ending with
    // today's, oldest first.
    static QList<qint64> focusSecondsPerWeek(const FocusDays& days, QDate today, int count);
    // The day with the most completed sessions (the latest of equals); invalid when none.
    static QDate bestDay(const FocusDays& days);
};
