#include "ExportFields.h"

#include "Record.h"
#include "RecordTable.h"

#include <QMetaProperty>
#include <QUuid>

QString ExportFields::iso(const QDateTime& t)
{
    return t.toUTC().toString(Qt::ISODateWithMs);
}

QString ExportFields::text(const QVariantHash& record, const char* field)
{
    return record.value(QLatin1String(field)).toString();
}

QString ExportFields::idText(const QVariantHash& record, const char* field)
{
    const QUuid id = record.value(QLatin1String(field)).toUuid();
    return id.isNull() ? QString() : id.toString(QUuid::WithoutBraces);
}

QString ExportFields::keyOf(RecordKind kind, const QVariantHash& record)
{
    const QString field = RecordTable::of(kind).keyField();
    const QVariant key = record.value(field);
    return key.metaType().id() == QMetaType::QUuid ? idText(record, field.toLatin1().constData())
                                                   : key.toString();
}

QVariantHash ExportFields::fieldsOf(const Record* record)
{
    QVariantHash fields;
    for (const QMetaProperty& p : RecordTable::of(record->kind()).properties())
        fields.insert(QString::fromLatin1(p.name()), p.read(record));
    return fields;
}

QString ExportFields::ownerOf(RecordKind kind, const QVariantHash& record)
{
    if (kind == RecordKind::HabitHistory)
        return idText(record, "habitId");
    if (kind == RecordKind::TaskItem)
        return idText(record, "listId");
    return {};
}

QString ExportFields::habitDay(const QVariantHash& record)
{
    return idText(record, "habitId") + u' ' + text(record, "date");
}
