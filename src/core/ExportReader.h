#pragma once

#include "ExportDocument.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QVariantHash>

#include <optional>

class ExportRecordReader;

// Checks a whole export document and reads its records. The first fault ends the
// reading, named with where it is ("$.habits[3].maxValue: expected an integer").
class ExportReader
{
public:
    using Records = ExportDocument::Records;

    static std::optional<Records> read(const QByteArray& json, QString* error);

private:
    explicit ExportReader(QString* error);

    // The document's object once its size, syntax, format and version pass.
    std::optional<QJsonObject> header(const QByteArray& json);
    bool section(const QJsonObject& root, RecordKind kind);
    bool record(RecordKind kind, const QJsonValue& value, const QString& at, QSet<QString>& keys);
    // What holds for every record of the kind, beyond each field's type.
    void checkRules(RecordKind kind, const QVariantHash& record, ExportRecordReader& reader);
    // Owned records name an owner of the same document.
    bool checkOwners();

    QString* m_error;
    Records m_records;
    QSet<QString> m_habitDays;
};
