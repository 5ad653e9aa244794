#pragma once

#include "ExportDocument.h"

#include <QHash>

class Record;

// What importing a document's records into a store changes, record by record.
// Reads the store, writes nothing.
class ExportPlanner
{
public:
    static ExportDocument::Plan plan(ModelContext& context, const ExportDocument::Records& records,
                                     ExportDocument::Mode mode);

private:
    using Op = ExportDocument::Plan::Op;

    ExportPlanner(ModelContext& context, ExportDocument::Mode mode);

    void step(RecordKind kind, Op op, const QString& key, QVariantHash fields = {});
    void planKind(RecordKind kind, const QList<QVariantHash>& records);
    void planRecord(RecordKind kind, const QString& key, const QVariantHash& record);
    // A day both hold, in a merge.
    void mergeDay(const QVariantHash& record, const Record* local);

    ModelContext& m_context;
    ExportDocument::Mode m_mode;
    ExportDocument::Plan m_plan;
    // In a merge, the store's habit days by "habitId date".
    QHash<QString, Record*> m_localDays;
    QList<std::pair<RecordKind, QString>> m_removals;
};
