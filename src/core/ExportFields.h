#pragma once

#include "RecordKind.h"

#include <QDateTime>
#include <QString>
#include <QVariantHash>

#include <array>

class Record;

// How the export document names and relates records: shared by its reader, its
// writer and the planner of an import.
class ExportFields
{
public:
    // The kinds in the order they are read and applied: owners before what they own.
    static constexpr std::array<RecordKind, RecordKindCount> kinds{
        RecordKind::PomodoroConfig, RecordKind::TaskList,     RecordKind::TaskItem,
        RecordKind::Habit,          RecordKind::HabitHistory, RecordKind::WidgetPlacement,
        RecordKind::FocusSession,
    };

    static QString iso(const QDateTime& t);
    static QString text(const QVariantHash& record, const char* field);
    // A UUID field as text without braces; empty for none.
    static QString idText(const QVariantHash& record, const char* field);
    // The record's key as the store keys it.
    static QString keyOf(RecordKind kind, const QVariantHash& record);
    static QVariantHash fieldsOf(const Record* record);
    // The owner a record belongs to, for the kinds that have one.
    static QString ownerOf(RecordKind kind, const QVariantHash& record);
    // "habitId date": a habit has one history record per day.
    static QString habitDay(const QVariantHash& record);
};
