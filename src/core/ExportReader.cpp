#include "ExportReader.h"

#include "ExportDocument.h"
#include "ExportFields.h"
#include "ExportRecordReader.h"
#include "FocusSession.h"
#include "RecordTable.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMetaProperty>

namespace {
// Most records of each kind a document may hold: far beyond a lifetime of use, far
// below what would exhaust memory.
qsizetype limit(RecordKind kind)
{
    switch (kind) {
    case RecordKind::PomodoroConfig:
        return 1;
    case RecordKind::WidgetPlacement:
        return 64;
    case RecordKind::TaskList:
    case RecordKind::Habit:
        return 10'000;
    case RecordKind::TaskItem:
        return 200'000;
    case RecordKind::HabitHistory:
    case RecordKind::FocusSession:
        return 500'000;
    }
    return 0;
}

constexpr qint64 MaxMinutes = 525'600; // a year
} // namespace

ExportReader::ExportReader(QString* error)
    : m_error(error)
{}

std::optional<ExportReader::Records> ExportReader::read(const QByteArray& json, QString* error)
{
    ExportReader reader(error);
    const std::optional<QJsonObject> root = reader.header(json);
    if (!root)
        return std::nullopt;
    for (RecordKind kind : ExportFields::kinds) {
        if (!reader.section(*root, kind))
            return std::nullopt;
    }
    if (!reader.checkOwners())
        return std::nullopt;
    return std::move(reader.m_records);
}

std::optional<QJsonObject> ExportReader::header(const QByteArray& json)
{
    if (json.size() > ExportDocument::MaxFileBytes) {
        *m_error = QStringLiteral("the file is %1 MB, larger than the %2 MB Tidewell imports")
                       .arg(json.size() >> 20)
                       .arg(ExportDocument::MaxFileBytes >> 20);
        return std::nullopt;
    }
    QJsonParseError parse;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &parse);
    if (parse.error != QJsonParseError::NoError) {
        *m_error = QStringLiteral("the file is not valid JSON (%1 at byte %2); it may be cut short")
                       .arg(parse.errorString())
                       .arg(parse.offset);
        return std::nullopt;
    }
    if (!doc.isObject()) {
        *m_error = QStringLiteral("$: expected an object, found ") +
                   (doc.isArray() ? QStringLiteral("an array") : QStringLiteral("nothing"));
        return std::nullopt;
    }
    const QJsonObject root = doc.object();
    if (root.value(QStringLiteral("format")) != QJsonValue(ExportDocument::Format)) {
        *m_error = QStringLiteral("$.format: not a Tidewell export (expected \"%1\")")
                       .arg(ExportDocument::Format);
        return std::nullopt;
    }
    const QJsonValue version = root.value(QStringLiteral("version"));
    if (!version.isDouble() || version.toDouble() != ExportDocument::Version) {
        *m_error = version.isDouble()
                       ? QStringLiteral("$.version: version %1 is not one this Tidewell reads "
                                        "(it reads version %2)")
                             .arg(version.toDouble())
                             .arg(ExportDocument::Version)
                       : QStringLiteral("$.version: expected a number, found ") +
                             ExportRecordReader::typeName(version);
        return std::nullopt;
    }
    return root;
}

bool ExportReader::section(const QJsonObject& root, RecordKind kind)
{
    const QString name = ExportDocument::section(kind);
    const QString path = u"$." + name;
    const QJsonValue value = root.value(name);
    if (!value.isArray()) {
        *m_error = path + u": expected an array, found " + ExportRecordReader::typeName(value);
        return false;
    }
    const QJsonArray array = value.toArray();
    if (array.size() > limit(kind)) {
        *m_error = path + QStringLiteral(": %1 records, more than the %2 Tidewell imports")
                              .arg(array.size())
                              .arg(limit(kind));
        return false;
    }
    m_records[int(kind)].reserve(array.size());
    QSet<QString> keys;
    for (qsizetype i = 0; i < array.size(); ++i) {
        if (!record(kind, array.at(i), path + u'[' + QString::number(i) + u']', keys))
            return false;
    }
    return true;
}

bool ExportReader::record(RecordKind kind, const QJsonValue& value, const QString& at,
                          QSet<QString>& keys)
{
    if (!value.isObject()) {
        *m_error = at + u": expected an object, found " + ExportRecordReader::typeName(value);
        return false;
    }
    const RecordTable& table = RecordTable::of(kind);
    ExportRecordReader reader(value.toObject(), at, m_error);
    QVariantHash record;
    for (const QMetaProperty& p : table.properties()) {
        const auto field = reader.field(p);
        if (!field)
            return false;
        record.insert(QString::fromLatin1(p.name()), *field);
    }
    const QString key = ExportFields::keyOf(kind, record);
    if (key.isEmpty() || key.size() > 64)
        reader.fail(table.keyField(), QStringLiteral("every record needs an id"));
    else if (keys.contains(key))
        reader.fail(table.keyField(), u"the id " + key + u" appears twice");
    keys.insert(key);
    checkRules(kind, record, reader);
    if (reader.failed())
        return false;
    m_records[int(kind)].append(std::move(record));
    return true;
}

void ExportReader::checkRules(RecordKind kind, const QVariantHash& record,
                              ExportRecordReader& reader)
{
    switch (kind) {
    case RecordKind::PomodoroConfig:
        for (const char* minutes : {"pomodoroDuration", "shortBreakDuration", "longBreakDuration"})
            reader.range(record, minutes, 1, MaxMinutes);
        reader.range(record, "pomodorosForLongBreak", 1, 1000);
        for (const char* count :
             {"pomodoroCount", "pomodoroTotalCount", "shortBreakCount", "longBreakCount"})
            reader.range(record, count, 0, qint64(1) << 40);
        break;
    case RecordKind::Habit:
        reader.range(record, "maxValue", 1, 1'000'000);
        reader.range(record, "currentValue", 0, 1'000'000);
        break;
    case RecordKind::HabitHistory: {
        reader.range(record, "maxValue", 1, 1'000'000);
        reader.range(record, "value", 0, 1'000'000);
        const QString habitDay = ExportFields::habitDay(record);
        if (reader.day(record, "date") && m_habitDays.contains(habitDay))
            reader.fail(QStringLiteral("date"), u"a second record of the same habit for " +
                                                    ExportFields::text(record, "date"));
        m_habitDays.insert(habitDay);
        break;
    }
    case RecordKind::FocusSession: {
        reader.day(record, "day");
        if (!FocusSession::isPhase(ExportFields::text(record, "phase")))
            reader.fail(QStringLiteral("phase"),
                        QStringLiteral("expected \"focus\", \"shortBreak\" or \"longBreak\""));
        if (!FocusSession::isOutcome(ExportFields::text(record, "outcome")))
            reader.fail(QStringLiteral("outcome"),
                        QStringLiteral("expected \"completed\", \"skipped\", \"reset\" or "
                                       "\"abandoned\""));
        const QDateTime startedAt = record.value(QStringLiteral("startedAt")).toDateTime();
        const QDateTime endedAt = record.value(QStringLiteral("endedAt")).toDateTime();
        if (!startedAt.isValid() || !endedAt.isValid() || endedAt < startedAt)
            reader.fail(QStringLiteral("endedAt"),
                        QStringLiteral("a session needs a start and an end after it"));
        reader.range(record, "plannedSeconds", 0, MaxMinutes * 60);
        reader.range(record, "elapsedSeconds", 0, MaxMinutes * 60);
        break;
    }
    case RecordKind::TaskList:
    case RecordKind::TaskItem:
    case RecordKind::WidgetPlacement:
        break;
    }
}

bool ExportReader::checkOwners()
{
    for (RecordKind kind : {RecordKind::TaskItem, RecordKind::HabitHistory}) {
        const bool task = kind == RecordKind::TaskItem;
        QSet<QString> owners;
        for (const QVariantHash& owner :
             std::as_const(m_records[int(task ? RecordKind::TaskList : RecordKind::Habit)]))
            owners.insert(ExportFields::idText(owner, "id"));
        const QList<QVariantHash>& records = m_records[int(kind)];
        for (qsizetype i = 0; i < records.size(); ++i) {
            if (owners.contains(ExportFields::ownerOf(kind, records.at(i))))
                continue;
            *m_error = QStringLiteral("$.%1[%2].%3: names no %4 of this document")
                           .arg(ExportDocument::section(kind))
                           .arg(i)
                           .arg(task ? QStringLiteral("listId") : QStringLiteral("habitId"),
                                task ? QStringLiteral("task list") : QStringLiteral("habit"));
            return false;
        }
    }
    return true;
}
