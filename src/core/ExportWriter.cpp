#include "ExportWriter.h"

#include "ExportDocument.h"
#include "ExportFields.h"
#include "ModelContext.h"
#include "Record.h"
#include "RecordTable.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaProperty>
#include <QUuid>

namespace {
QJsonValue toJson(const QVariant& value, QMetaType type)
{
    switch (type.id()) {
    case QMetaType::QUuid: {
        const QUuid id = value.toUuid();
        return id.isNull() ? QJsonValue() : QJsonValue(id.toString(QUuid::WithoutBraces));
    }
    case QMetaType::QDateTime: {
        const QDateTime t = value.toDateTime();
        return t.isValid() ? QJsonValue(ExportFields::iso(t)) : QJsonValue();
    }
    case QMetaType::QString:
        return value.toString().isNull() ? QJsonValue() : QJsonValue(value.toString());
    case QMetaType::LongLong:
        return QJsonValue(value.toLongLong());
    case QMetaType::Bool:
        return QJsonValue(value.toBool());
    case QMetaType::QVariant: // an optional integer
        return value.isNull() ? QJsonValue() : QJsonValue(value.toLongLong());
    default:
        return QJsonValue();
    }
}
} // namespace

QByteArray ExportWriter::write(ModelContext& context, const QDateTime& now, QString* error)
{
    const quint64 failuresBefore = context.readFailures();
    QJsonObject root{{QStringLiteral("format"), ExportDocument::Format},
                     {QStringLiteral("version"), ExportDocument::Version},
                     {QStringLiteral("exportedAt"), ExportFields::iso(now)}};
    for (RecordKind kind : ExportFields::kinds) {
        const QList<QMetaProperty>& properties = RecordTable::of(kind).properties();
        QJsonArray records;
        for (const Record* record : context.records(kind)) {
            QJsonObject object;
            for (const QMetaProperty& p : properties)
                object.insert(QString::fromLatin1(p.name()), toJson(p.read(record), p.metaType()));
            records.append(object);
        }
        root.insert(ExportDocument::section(kind), records);
    }
    if (context.readFailures() != failuresBefore) {
        *error = QStringLiteral("the store could not be read completely, so nothing was written");
        return {};
    }
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}
