#pragma once

#include "HistoryStats.h"

#include <QList>
#include <QString>
#include <QUuid>

class DataStore;

// Reads years of history straight from the store, as plain values: making a record
// object of every day would take longer than the window it feeds may.
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
        HistoryStats::Days days;
    };

    // The habits in the widget's order, each with every recorded day. Pending changes
    // are saved first, so what is read is what the widgets show.
    static QList<HabitDays> habits(DataStore& store);
    // Every focus session, oldest first.
    static QList<HistoryStats::Session> sessions(DataStore& store);
};
