#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QVariant>
#include <QVariantHash>

#include <optional>

class QMetaProperty;

// Reads one record of an export document, field by field, each as its property's
// type. The first fault is kept in `error`, with the record's path and the field.
class ExportRecordReader
{
public:
    ExportRecordReader(const QJsonObject& object, QString path, QString* error);

    bool failed() const { return m_failed; }
    // Records the fault (only the first counts); always false.
    bool fail(const QString& field, const QString& what);

    std::optional<QVariant> field(const QMetaProperty& property);
    // `field` of the record read so far must be in [low, high].
    void range(const QVariantHash& record, const char* field, qint64 low, qint64 high);
    // `field` must be a day as yyyy-MM-dd; false when it is not.
    bool day(const QVariantHash& record, const char* field);

    // "a string", "an object", …: what a fault says was found.
    static QString typeName(const QJsonValue& value);

private:
    static std::optional<qint64> integer(const QJsonValue& v);

    QJsonObject m_object;
    QString m_path;
    QString* m_error;
    bool m_failed = false;
};
