#pragma once

#include "HistoryStats.h"

#include <QList>
#include <QString>
#include <QUuid>

class DataStore;

// Reads years of history straight from the store's tables as plain values, and
// only what the statistics need: a record object per day, or every day of ten
// years, would take longer than opening the window they feed may.
class HistoryReader
{
public:
    HistoryReader() = delete;

    struct HabitDays
    {
        QUuid id;
        QString icon;
        QString name;
        QString colorHex;
        qint64 maxValue = 0;
        QDate since; // the first day tracked
        // Every day of the `recentDays` before today and today, and of the days
        // before those, the ones that reached their target: enough for the year
        // shown, the rates and both streaks.
        HistoryStats::Days days;
    };

    // The habits in the widget's order. Pending changes are saved first, so what is
    // read is what the widgets show.
    static QList<HabitDays> habits(DataStore& store, QDate today, int recentDays = 400);

    struct Focus
    {
        HistoryStats::FocusDays days;
        qint64 averageSeconds = 0; // of completed focus sessions; 0 when none
    };
    static Focus focus(DataStore& store);
};
