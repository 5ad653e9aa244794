#include "ExportDocument.h"

#include "FocusSession.h"
#include "ModelContext.h"
#include "Record.h"
#include "RecordTable.h"

#include <QDate>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaProperty>
#include <QSet>
#include <QUuid>

#include <cmath>

namespace {
// The kinds in the order they are read and applied: owners before what they own.
constexpr std::array<RecordKind, RecordKindCount> allKinds{
    RecordKind::PomodoroConfig, RecordKind::TaskList,     RecordKind::TaskItem,
    RecordKind::Habit,          RecordKind::HabitHistory, RecordKind::WidgetPlacement,
    RecordKind::FocusSession,
};

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

constexpr double MaxExactInteger = 9007199254740992.0; // 2^53: beyond, JSON numbers blur

QString iso(const QDateTime& t)
{
    return t.toUTC().toString(Qt::ISODateWithMs);
}

QJsonValue toJson(const QVariant& value, QMetaType type)
{
    switch (type.id()) {
    case QMetaType::QUuid: {
        const QUuid id = value.toUuid();
        return id.isNull() ? QJsonValue() : QJsonValue(id.toString(QUuid::WithoutBraces));
    }
    case QMetaType::QDateTime: {
        const QDateTime t = value.toDateTime();
        return t.isValid() ? QJsonValue(iso(t)) : QJsonValue();
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

QString jsonTypeName(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return QStringLiteral("null");
    case QJsonValue::Bool:
        return QStringLiteral("a boolean");
    case QJsonValue::Double:
        return QStringLiteral("a number");
    case QJsonValue::String:
        return QStringLiteral("a string");
    case QJsonValue::Array:
        return QStringLiteral("an array");
    case QJsonValue::Object:
        return QStringLiteral("an object");
    case QJsonValue::Undefined:
        break;
    }
    return QStringLiteral("nothing");
}

// Reads one record's fields, each as its property's type, and checks what holds for
// every record of the kind. Relations between records are checked by the caller.
class RecordReader
{
public:
    RecordReader(const QJsonObject& object, QString path, QString* error)
        : m_object(object)
        , m_path(std::move(path))
        , m_error(error)
    {}

    bool failed() const { return m_failed; }

    bool fail(const QString& field, const QString& what)
    {
        if (!m_failed)
            *m_error = m_path + (field.isEmpty() ? QString() : u'.' + field) + u": " + what;
        m_failed = true;
        return false;
    }

    std::optional<QVariant> field(const QMetaProperty& property)
    {
        const QString name = QString::fromLatin1(property.name());
        if (!m_object.contains(name)) {
            fail(name, QStringLiteral("missing"));
            return std::nullopt;
        }
        const QJsonValue v = m_object.value(name);
        const auto expected = [&](const QString& what) -> std::optional<QVariant> {
            fail(name, u"expected " + what + u", found " + jsonTypeName(v));
            return std::nullopt;
        };
        switch (property.metaType().id()) {
        case QMetaType::QUuid: {
            if (v.isNull())
                return QVariant(QUuid());
            const QUuid id = v.isString() ? QUuid::fromString(v.toString()) : QUuid();
            if (id.isNull())
                return expected(QStringLiteral("an id (UUID text) or null"));
            return QVariant(id);
        }
        case QMetaType::QDateTime: {
            if (v.isNull())
                return QVariant(QDateTime());
            const QDateTime t = v.isString() && v.toString().size() <= 64
                                    ? QDateTime::fromString(v.toString(), Qt::ISODateWithMs)
                                    : QDateTime();
            if (!t.isValid())
                return expected(QStringLiteral("an ISO 8601 date and time or null"));
            return QVariant(t);
        }
        case QMetaType::QString:
            if (v.isNull())
                return QVariant(QString());
            if (!v.isString())
                return expected(QStringLiteral("text or null"));
            if (v.toString().size() > ExportDocument::MaxTextLength) {
                fail(name, QStringLiteral("text of %1 characters, longer than the %2 allowed")
                               .arg(v.toString().size())
                               .arg(ExportDocument::MaxTextLength));
                return std::nullopt;
            }
            return QVariant(v.toString());
        case QMetaType::LongLong: {
            if (const auto n = integer(v))
                return QVariant(*n);
            return expected(QStringLiteral("an integer"));
        }
        case QMetaType::Bool:
            if (!v.isBool())
                return expected(QStringLiteral("true or false"));
            return QVariant(v.toBool());
        case QMetaType::QVariant:
            if (v.isNull())
                return QVariant();
            if (const auto n = integer(v))
                return QVariant(*n);
            return expected(QStringLiteral("an integer or null"));
        default:
            fail(name, QStringLiteral("a field of a type Tidewell cannot read"));
            return std::nullopt;
        }
    }

    // `field` of the record read so far must be in [low, high].
    void range(const QVariantHash& record, const char* field, qint64 low, qint64 high)
    {
        const qint64 n = record.value(QLatin1String(field)).toLongLong();
        if (n < low || n > high)
            fail(QLatin1String(field),
                 QStringLiteral("%1 is out of range (%2 to %3)").arg(n).arg(low).arg(high));
    }

private:
    static std::optional<qint64> integer(const QJsonValue& v)
    {
        if (!v.isDouble())
            return std::nullopt;
        const double d = v.toDouble();
        if (!std::isfinite(d) || std::trunc(d) != d || std::fabs(d) > MaxExactInteger)
            return std::nullopt;
        return qint64(d);
    }

    QJsonObject m_object;
    QString m_path;
    QString* m_error;
    bool m_failed = false;
};

QString text(const QVariantHash& record, const char* field)
{
    return record.value(QLatin1String(field)).toString();
}

QString idText(const QVariantHash& record, const char* field)
{
    const QUuid id = record.value(QLatin1String(field)).toUuid();
    return id.isNull() ? QString() : id.toString(QUuid::WithoutBraces);
}

QString keyOf(RecordKind kind, const QVariantHash& record)
{
    const QString field = RecordTable::of(kind).keyField();
    const QVariant key = record.value(field);
    return key.metaType().id() == QMetaType::QUuid ? idText(record, field.toLatin1().constData())
                                                   : key.toString();
}

QVariantHash fieldsOf(const Record* record)
{
    QVariantHash fields;
    for (const QMetaProperty& p : RecordTable::of(record->kind()).properties())
        fields.insert(QString::fromLatin1(p.name()), p.read(record));
    return fields;
}

// The owner a record belongs to, for the kinds that have one.
QString ownerOf(RecordKind kind, const QVariantHash& record)
{
    if (kind == RecordKind::HabitHistory)
        return idText(record, "habitId");
    if (kind == RecordKind::TaskItem)
        return idText(record, "listId");
    return {};
}
} // namespace

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
    const quint64 failuresBefore = context.readFailures();
    QJsonObject root{{QStringLiteral("format"), Format},
                     {QStringLiteral("version"), Version},
                     {QStringLiteral("exportedAt"), iso(now)}};
    for (RecordKind kind : allKinds) {
        const QList<QMetaProperty>& properties = RecordTable::of(kind).properties();
        QJsonArray records;
        for (const Record* record : context.records(kind)) {
            QJsonObject object;
            for (const QMetaProperty& p : properties)
                object.insert(QString::fromLatin1(p.name()), toJson(p.read(record), p.metaType()));
            records.append(object);
        }
        root.insert(section(kind), records);
    }
    if (context.readFailures() != failuresBefore) {
        *error = QStringLiteral("the store could not be read completely, so nothing was written");
        return {};
    }
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

std::optional<ExportDocument> ExportDocument::read(const QByteArray& json, QString* error)
{
    if (json.size() > MaxFileBytes) {
        *error = QStringLiteral("the file is %1 MB, larger than the %2 MB Tidewell imports")
                     .arg(json.size() >> 20)
                     .arg(MaxFileBytes >> 20);
        return std::nullopt;
    }
    QJsonParseError parse;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &parse);
    if (parse.error != QJsonParseError::NoError) {
        *error = QStringLiteral("the file is not valid JSON (%1 at byte %2); it may be cut short")
                     .arg(parse.errorString())
                     .arg(parse.offset);
        return std::nullopt;
    }
    if (!doc.isObject()) {
        *error = QStringLiteral("$: expected an object, found ") +
                 (doc.isArray() ? QStringLiteral("an array") : QStringLiteral("nothing"));
        return std::nullopt;
    }
    const QJsonObject root = doc.object();
    if (root.value(QStringLiteral("format")) != QJsonValue(Format)) {
        *error = QStringLiteral("$.format: not a Tidewell export (expected \"%1\")").arg(Format);
        return std::nullopt;
    }
    const QJsonValue version = root.value(QStringLiteral("version"));
    if (!version.isDouble() || version.toDouble() != Version) {
        *error =
            version.isDouble()
                ? QStringLiteral("$.version: version %1 is not one this Tidewell reads "
                                 "(it reads version %2)")
                      .arg(version.toDouble())
                      .arg(Version)
                : QStringLiteral("$.version: expected a number, found ") + jsonTypeName(version);
        return std::nullopt;
    }

    ExportDocument out;
    QSet<QString> habitDays; // "habitId date": one record per habit and day
    for (RecordKind kind : allKinds) {
        const QString name = section(kind);
        const QString path = u"$." + name;
        const QJsonValue value = root.value(name);
        if (!value.isArray()) {
            *error = path + u": expected an array, found " + jsonTypeName(value);
            return std::nullopt;
        }
        const QJsonArray array = value.toArray();
        if (array.size() > limit(kind)) {
            *error = path + QStringLiteral(": %1 records, more than the %2 Tidewell imports")
                                .arg(array.size())
                                .arg(limit(kind));
            return std::nullopt;
        }
        const RecordTable& table = RecordTable::of(kind);
        QSet<QString> keys;
        QList<QVariantHash>& records = out.m_records[int(kind)];
        records.reserve(array.size());
        for (qsizetype i = 0; i < array.size(); ++i) {
            const QString at = path + u'[' + QString::number(i) + u']';
            if (!array.at(i).isObject()) {
                *error = at + u": expected an object, found " + jsonTypeName(array.at(i));
                return std::nullopt;
            }
            RecordReader reader(array.at(i).toObject(), at, error);
            QVariantHash record;
            for (const QMetaProperty& p : table.properties()) {
                const auto field = reader.field(p);
                if (!field)
                    return std::nullopt;
                record.insert(QString::fromLatin1(p.name()), *field);
            }
            const QString key = keyOf(kind, record);
            if (key.isEmpty() || key.size() > 64)
                reader.fail(table.keyField(), QStringLiteral("every record needs an id"));
            else if (keys.contains(key))
                reader.fail(table.keyField(), u"the id " + key + u" appears twice");
            keys.insert(key);

            const QString owner = ownerOf(kind, record);
            switch (kind) {
            case RecordKind::PomodoroConfig:
                for (const char* minutes :
                     {"pomodoroDuration", "shortBreakDuration", "longBreakDuration"})
                    reader.range(record, minutes, 1, 525'600);
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
                const QString date = text(record, "date");
                if (date.size() != 10 || !QDate::fromString(date, Qt::ISODate).isValid())
                    reader.fail(QStringLiteral("date"),
                                QStringLiteral("expected a day as yyyy-MM-dd"));
                else if (habitDays.contains(owner + u' ' + date))
                    reader.fail(QStringLiteral("date"),
                                u"a second record of the same habit for " + date);
                habitDays.insert(owner + u' ' + date);
                break;
            }
            case RecordKind::FocusSession:
                if (const QString day = text(record, "day");
                    day.size() != 10 || !QDate::fromString(day, Qt::ISODate).isValid())
                    reader.fail(QStringLiteral("day"),
                                QStringLiteral("expected a day as yyyy-MM-dd"));
                if (!FocusSession::isPhase(text(record, "phase")))
                    reader.fail(
                        QStringLiteral("phase"),
                        QStringLiteral("expected \"focus\", \"shortBreak\" or \"longBreak\""));
                if (!FocusSession::isOutcome(text(record, "outcome")))
                    reader.fail(QStringLiteral("outcome"),
                                QStringLiteral("expected \"completed\", \"skipped\", \"reset\" or "
                                               "\"abandoned\""));
                if (!record.value(QStringLiteral("startedAt")).toDateTime().isValid() ||
                    !record.value(QStringLiteral("endedAt")).toDateTime().isValid() ||
                    record.value(QStringLiteral("endedAt")).toDateTime() <
                        record.value(QStringLiteral("startedAt")).toDateTime())
                    reader.fail(QStringLiteral("endedAt"),
                                QStringLiteral("a session needs a start and an end after it"));
                reader.range(record, "plannedSeconds", 0, qint64(525'600) * 60);
                reader.range(record, "elapsedSeconds", 0, qint64(525'600) * 60);
                break;
            case RecordKind::TaskList:
            case RecordKind::TaskItem:
            case RecordKind::WidgetPlacement:
                break;
            }
            if (reader.failed())
                return std::nullopt;
            records.append(std::move(record));
        }
    }

    // Owners are checked once all of them are known.
    for (RecordKind kind : {RecordKind::TaskItem, RecordKind::HabitHistory}) {
        const RecordKind ownerKind =
            kind == RecordKind::TaskItem ? RecordKind::TaskList : RecordKind::Habit;
        QSet<QString> owners;
        for (const QVariantHash& owner : std::as_const(out.m_records[int(ownerKind)]))
            owners.insert(idText(owner, "id"));
        const QList<QVariantHash>& records = out.m_records[int(kind)];
        for (qsizetype i = 0; i < records.size(); ++i) {
            if (!owners.contains(ownerOf(kind, records.at(i)))) {
                *error = QStringLiteral("$.%1[%2].%3: names no %4 of this document")
                             .arg(section(kind))
                             .arg(i)
                             .arg(kind == RecordKind::TaskItem ? QStringLiteral("listId")
                                                               : QStringLiteral("habitId"),
                                  kind == RecordKind::TaskItem ? QStringLiteral("task list")
                                                               : QStringLiteral("habit"));
                return std::nullopt;
            }
        }
    }
    return out;
}

ExportDocument::Plan ExportDocument::plan(ModelContext& context, Mode mode) const
{
    Plan plan;
    const auto step = [&plan](RecordKind kind, Plan::Op op, const QString& key,
                              QVariantHash fields = {}) {
        Tally& tally = plan.m_tally[int(kind)];
        (op == Plan::Op::Insert   ? tally.added
         : op == Plan::Op::Update ? tally.changed
                                  : tally.removed)++;
        plan.m_steps.append({kind, op, key, std::move(fields)});
    };

    // In a merge, a day both hold keeps the larger count: within a day a count only
    // grows until the day closes, so the larger is the later state.
    QHash<QString, Record*> localDays;
    if (mode == Mode::Merge) {
        for (Record* r : context.records(RecordKind::HabitHistory)) {
            const QVariantHash fields = fieldsOf(r);
            localDays.insert(idText(fields, "habitId") + u' ' + text(fields, "date"), r);
        }
    }

    QList<std::pair<RecordKind, QString>> removals;
    for (RecordKind kind : allKinds) {
        QSet<QString> incoming;
        const bool keepLocalTimer = mode == Mode::Merge && kind == RecordKind::PomodoroConfig &&
                                    !context.records(kind).isEmpty();
        for (const QVariantHash& record : m_records[int(kind)]) {
            if (keepLocalTimer)
                break;
            const QString key = keyOf(kind, record);
            incoming.insert(key);
            Record* local = context.find(kind, key);
            if (kind == RecordKind::HabitHistory && mode == Mode::Merge) {
                Record* sameDay =
                    localDays.value(ownerOf(kind, record) + u' ' + text(record, "date"));
                if (sameDay) {
                    const QVariantHash mine = fieldsOf(sameDay);
                    if (record.value(QStringLiteral("value")).toLongLong() >
                        mine.value(QStringLiteral("value")).toLongLong()) {
                        QVariantHash update = record;
                        update.insert(QStringLiteral("id"), mine.value(QStringLiteral("id")));
                        step(kind, Plan::Op::Update, sameDay->key(), update);
                    }
                    continue;
                }
                if (local) // the same id on another day or habit: the document's record wins
                    localDays.remove(idText(fieldsOf(local), "habitId") + u' ' +
                                     text(fieldsOf(local), "date"));
            }
            if (!local) {
                step(kind, Plan::Op::Insert, key, record);
                continue;
            }
            const QVariantHash mine = fieldsOf(local);
            QVariantHash update = record;
            if (mode == Mode::Merge && kind == RecordKind::Habit)
                update.insert(QStringLiteral("currentValue"),
                              std::max(mine.value(QStringLiteral("currentValue")).toLongLong(),
                                       record.value(QStringLiteral("currentValue")).toLongLong()));
            if (ownerOf(kind, mine) != ownerOf(kind, record)) {
                // Moving a record to another owner is a removal and an insertion, so the
                // old owner's removal cannot take it along.
                step(kind, Plan::Op::Remove, key);
                step(kind, Plan::Op::Insert, key, update);
                plan.m_tally[int(kind)].removed--;
                plan.m_tally[int(kind)].added--;
                plan.m_tally[int(kind)].changed++;
            } else if (update != mine) {
                step(kind, Plan::Op::Update, key, update);
            }
        }
        if (mode == Mode::Replace) {
            for (Record* local : context.records(kind)) {
                if (!incoming.contains(local->key()))
                    removals.append({kind, local->key()});
            }
        }
    }
    // Owned records first, so each removal is counted once and by its own kind.
    for (auto it = removals.crbegin(); it != removals.crend(); ++it)
        step(it->first, Plan::Op::Remove, it->second);
    return plan;
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
    for (RecordKind kind : allKinds) {
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
