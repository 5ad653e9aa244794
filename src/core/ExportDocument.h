#pragma once

#include "RecordKind.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QVariantHash>

#include <array>
#include <optional>

class ModelContext;

// Every record of the store as one versioned JSON document, and back. Reading
// checks the whole document before anything is planned; applying a plan writes
// it in one transaction, so a document is taken whole or not at all.
//
// The document: {"format": "tidewell-export", "version": 1, "exportedAt": …,
// "timer": […], "taskLists": […], "tasks": […], "habits": […], "habitHistory": […],
// "placements": […], "focusSessions": […]}, each record an object of its fields
// (ids as UUID text, instants as ISO 8601 UTC with milliseconds).
class ExportDocument
{
public:
    static constexpr int Version = 1;
    static inline const QString Format = QStringLiteral("tidewell-export");
    // Larger files are refused before they are read.
    static constexpr qint64 MaxFileBytes = qint64(256) << 20;
    static constexpr qsizetype MaxTextLength = 4096;

    enum class Mode {
        Replace, // the store becomes the document
        Merge,   // the document's records join the store's (matched by id)
    };

    struct Tally
    {
        qsizetype added = 0;
        qsizetype changed = 0;
        qsizetype removed = 0;
    };

    // What an import will do, record by record; shown before it is applied.
    class Plan
    {
    public:
        const Tally& tally(RecordKind kind) const { return m_tally[int(kind)]; }
        bool isEmpty() const { return m_steps.isEmpty(); }
        // One line per kind that changes: "Habits: 2 added, 1 changed, 0 removed".
        QStringList summary() const;

    private:
        friend class ExportDocument;
        friend class ExportPlanner;
        enum class Op { Insert, Update, Remove };
        struct Step
        {
            RecordKind kind;
            Op op;
            QString key;
            QVariantHash fields;
        };
        QList<Step> m_steps;
        std::array<Tally, RecordKindCount> m_tally{};
    };

    // The document's name for a kind's section ("habits", "habitHistory", …), and
    // the name people read ("Habits", "Habit history", …).
    static QString section(RecordKind kind);
    static QString title(RecordKind kind);

    // Each record as property name -> value of the property's own type.
    using Records = std::array<QList<QVariantHash>, RecordKindCount>;

    // Every record of `context`. Empty, with `error`, when the store cannot be read:
    // a partial backup would pass for a whole one.
    static QByteArray write(ModelContext& context, const QDateTime& now, QString* error);

    // The document in `json`, checked completely. On any fault: nothing, and `error`
    // names it and where it is ("$.habits[3].maxValue: expected an integer").
    static std::optional<ExportDocument> read(const QByteArray& json, QString* error);

    qsizetype count(RecordKind kind) const { return m_records[int(kind)].size(); }

    // What importing into `context` in `mode` changes. Reads the store, writes nothing.
    Plan plan(ModelContext& context, Mode mode) const;
    // Carries out `plan` and saves it in one transaction. On failure the file is as
    // it was and `error` says why.
    static bool apply(ModelContext& context, const Plan& plan, QString* error);

private:
    explicit ExportDocument(Records records)
        : m_records(std::move(records))
    {}

    Records m_records;
};
