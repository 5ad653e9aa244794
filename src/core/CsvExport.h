#pragma once

#include <QByteArray>

class ModelContext;

// The history as spreadsheets read it: RFC 4180 (CRLF rows, fields quoted when
// they need it), UTF-8, ISO 8601 dates and local times with their offset.
class CsvExport
{
public:
    CsvExport() = delete;

    // habit,habit_id,date,value,target,completed — one row per habit and day, by habit
    // in the widget's order, then by day.
    static QByteArray habitHistory(ModelContext& context);
    // id,phase,started_at,ended_at,planned_seconds,elapsed_seconds,outcome — by start.
    static QByteArray focusSessions(ModelContext& context);
};
