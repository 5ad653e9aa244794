#include "ExportPlanner.h"

#include "ExportFields.h"
#include "ModelContext.h"
#include "Record.h"

#include <QSet>

ExportPlanner::ExportPlanner(ModelContext& context, ExportDocument::Mode mode)
    : m_context(context)
    , m_mode(mode)
{}

ExportDocument::Plan ExportPlanner::plan(ModelContext& context,
                                         const ExportDocument::Records& records,
                                         ExportDocument::Mode mode)
{
    ExportPlanner planner(context, mode);
    if (mode == ExportDocument::Mode::Merge) {
        for (Record* r : context.records(RecordKind::HabitHistory))
            planner.m_localDays.insert(ExportFields::habitDay(ExportFields::fieldsOf(r)), r);
    }
    for (RecordKind kind : ExportFields::kinds)
        planner.planKind(kind, records[int(kind)]);
    // Owned records first, so each removal is counted once and by its own kind.
    for (auto it = planner.m_removals.crbegin(); it != planner.m_removals.crend(); ++it)
        planner.step(it->first, Op::Remove, it->second);
    return std::move(planner.m_plan);
}

void ExportPlanner::step(RecordKind kind, Op op, const QString& key, QVariantHash fields)
{
    ExportDocument::Tally& tally = m_plan.m_tally[int(kind)];
    (op == Op::Insert ? tally.added : op == Op::Update ? tally.changed : tally.removed)++;
    m_plan.m_steps.append({kind, op, key, std::move(fields)});
}

void ExportPlanner::planKind(RecordKind kind, const QList<QVariantHash>& records)
{
    // A merge keeps this computer's timer settings.
    if (m_mode == ExportDocument::Mode::Merge && kind == RecordKind::PomodoroConfig &&
        !m_context.records(kind).isEmpty())
        return;
    QSet<QString> incoming;
    for (const QVariantHash& record : records) {
        const QString key = ExportFields::keyOf(kind, record);
        incoming.insert(key);
        planRecord(kind, key, record);
    }
    if (m_mode == ExportDocument::Mode::Replace) {
        for (Record* local : m_context.records(kind)) {
            if (!incoming.contains(local->key()))
                m_removals.append({kind, local->key()});
        }
    }
}

void ExportPlanner::planRecord(RecordKind kind, const QString& key, const QVariantHash& record)
{
    Record* local = m_context.find(kind, key);
    const bool merge = m_mode == ExportDocument::Mode::Merge;
    if (kind == RecordKind::HabitHistory && merge) {
        if (const Record* sameDay = m_localDays.value(ExportFields::habitDay(record))) {
            mergeDay(record, sameDay);
            return;
        }
        if (local) // the same id on another day or habit: the document's record wins
            m_localDays.remove(ExportFields::habitDay(ExportFields::fieldsOf(local)));
    }
    if (!local) {
        step(kind, Op::Insert, key, record);
        return;
    }
    const QVariantHash mine = ExportFields::fieldsOf(local);
    QVariantHash update = record;
    if (merge && kind == RecordKind::Habit)
        update.insert(QStringLiteral("currentValue"),
                      std::max(mine.value(QStringLiteral("currentValue")).toLongLong(),
                               record.value(QStringLiteral("currentValue")).toLongLong()));
    if (ExportFields::ownerOf(kind, mine) != ExportFields::ownerOf(kind, record)) {
        // Moving a record to another owner is a removal and an insertion, so the old
        // owner's removal cannot take it along; it counts as one change.
        step(kind, Op::Remove, key);
        step(kind, Op::Insert, key, update);
        ExportDocument::Tally& tally = m_plan.m_tally[int(kind)];
        tally.removed--;
        tally.added--;
        tally.changed++;
    } else if (update != mine) {
        step(kind, Op::Update, key, update);
    }
}

void ExportPlanner::mergeDay(const QVariantHash& record, const Record* local)
{
    // Within a day a count only grows until the day closes, so the larger is the
    // later state.
    const QVariantHash mine = ExportFields::fieldsOf(local);
    if (record.value(QStringLiteral("value")).toLongLong() <=
        mine.value(QStringLiteral("value")).toLongLong())
        return;
    QVariantHash update = record;
    update.insert(QStringLiteral("id"), mine.value(QStringLiteral("id")));
    step(RecordKind::HabitHistory, Op::Update, local->key(), update);
}
