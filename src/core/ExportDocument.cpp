#include "ExportDocument.h"

#include "ExportFields.h"
#include "ExportPlanner.h"
#include "ExportReader.h"
#include "ExportWriter.h"
#include "ModelContext.h"
#include "Record.h"
#include "RecordTable.h"

#include <QMetaProperty>

QString ExportDocument::section(RecordKind kind)
{
    switch (kind) {
    case RecordKind::PomodoroConfig:
        return QStringLiteral("timer");
    case RecordKind::TaskList:
        return QStringLiteral("taskLists");
    case RecordKind::TaskItem:
        return QStringLiteral("tasks");
    case RecordKind::Habit:
        return QStringLiteral("habits");
    case RecordKind::HabitHistory:
        return QStringLiteral("habitHistory");
    case RecordKind::WidgetPlacement:
        return QStringLiteral("placements");
    case RecordKind::FocusSession:
        return QStringLiteral("focusSessions");
    }
    return {};
}

QString ExportDocument::title(RecordKind kind)
{
    switch (kind) {
    case RecordKind::PomodoroConfig:
        return QStringLiteral("Timer settings");
    case RecordKind::TaskList:
        return QStringLiteral("Task lists");
    case RecordKind::TaskItem:
        return QStringLiteral("Tasks");
    case RecordKind::Habit:
        return QStringLiteral("Habits");
    case RecordKind::HabitHistory:
        return QStringLiteral("Habit history");
    case RecordKind::WidgetPlacement:
        return QStringLiteral("Placements");
    case RecordKind::FocusSession:
        return QStringLiteral("Focus sessions");
    }
    return {};
}

QByteArray ExportDocument::write(ModelContext& context, const QDateTime& now, QString* error)
{
    return ExportWriter::write(context, now, error);
}

std::optional<ExportDocument> ExportDocument::read(const QByteArray& json, QString* error)
{
    std::optional<Records> records = ExportReader::read(json, error);
    if (!records)
        return std::nullopt;
    return ExportDocument(std::move(*records));
}

ExportDocument::Plan ExportDocument::plan(ModelContext& context, Mode mode) const
{
    return ExportPlanner::plan(context, m_records, mode);
}

bool ExportDocument::apply(ModelContext& context, const Plan& plan, QString* error)
{
    for (const Plan::Step& step : plan.m_steps) {
        const RecordTable& table = RecordTable::of(step.kind);
        Record* record =
            step.op == Plan::Op::Insert ? table.create() : context.find(step.kind, step.key);
        if (!record)
            continue; // already gone with its owner
        if (step.op == Plan::Op::Remove) {
            context.remove(record);
            continue;
        }
        for (const QMetaProperty& p : table.properties())
            p.write(record, step.fields.value(QString::fromLatin1(p.name())));
        if (step.op == Plan::Op::Insert && !context.insert(record)) {
            delete record;
            *error = u"the record " + step.key + u" could not be added";
            return false;
        }
    }
    return context.save(error);
}

QStringList ExportDocument::Plan::summary() const
{
    QStringList lines;
    for (RecordKind kind : ExportFields::kinds) {
        const Tally& t = m_tally[int(kind)];
        if (t.added == 0 && t.changed == 0 && t.removed == 0)
            continue;
        lines.append(QStringLiteral("%1: %2 added, %3 changed, %4 removed")
                         .arg(ExportDocument::title(kind))
                         .arg(t.added)
                         .arg(t.changed)
                         .arg(t.removed));
    }
    return lines;
}
