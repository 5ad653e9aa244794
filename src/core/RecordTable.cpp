#include "RecordTable.h"

#include "StoreConnection.h"

#include "FocusSession.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "PomodoroConfig.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "WidgetPlacement.h"

#include <QDateTime>
#include <QMetaProperty>
#include <QUuid>

#include <array>
#include <cmath>

namespace {
template <typename T> Record* make()
{
    return new T;
}
} // namespace

RecordTable::RecordTable(RecordKind kind, QString name, QString keyField, const QMetaObject* meta,
                         std::function<Record*()> create, std::optional<Cascade> cascade)
    : m_kind(kind)
    , m_name(std::move(name))
    , m_keyField(std::move(keyField))
    , m_meta(meta)
    , m_create(std::move(create))
    , m_cascade(std::move(cascade))
{
    QStringList columns;
    for (int i = m_meta->propertyOffset(); i < m_meta->propertyCount(); ++i) {
        m_properties.append(m_meta->property(i));
        columns.append(quoted(QString::fromLatin1(m_meta->property(i).name())));
    }
    m_columns = columns.join(u", ");
}

const RecordTable& RecordTable::of(RecordKind kind)
{
    static const std::array<RecordTable, RecordKindCount> tables{
        RecordTable(RecordKind::PomodoroConfig, QStringLiteral("pomodoro_config"),
                    QStringLiteral("id"), &PomodoroConfig::staticMetaObject, make<PomodoroConfig>,
                    std::nullopt),
        RecordTable(RecordKind::TaskList, QStringLiteral("task_list"), QStringLiteral("id"),
                    &TaskList::staticMetaObject, make<TaskList>,
                    Cascade{RecordKind::TaskItem, QStringLiteral("listId")}),
        RecordTable(RecordKind::TaskItem, QStringLiteral("task_item"), QStringLiteral("id"),
                    &TaskItem::staticMetaObject, make<TaskItem>, std::nullopt),
        RecordTable(RecordKind::Habit, QStringLiteral("habit"), QStringLiteral("id"),
                    &Habit::staticMetaObject, make<Habit>,
                    Cascade{RecordKind::HabitHistory, QStringLiteral("habitId")}),
        RecordTable(RecordKind::HabitHistory, QStringLiteral("habit_history"), QStringLiteral("id"),
                    &HabitHistory::staticMetaObject, make<HabitHistory>, std::nullopt),
        RecordTable(RecordKind::WidgetPlacement, QStringLiteral("widget_placement"),
                    QStringLiteral("widgetId"), &WidgetPlacement::staticMetaObject,
                    make<WidgetPlacement>, std::nullopt),
        RecordTable(RecordKind::FocusSession, QStringLiteral("focus_session"), QStringLiteral("id"),
                    &FocusSession::staticMetaObject, make<FocusSession>, std::nullopt),
    };
    return tables[static_cast<int>(kind)];
}

QStringList RecordTable::fields() const
{
    QStringList names;
    for (const QMetaProperty& p : m_properties)
        names.append(QString::fromLatin1(p.name()));
    return names;
}

QString RecordTable::quoted(const QString& identifier)
{
    return u'"' + identifier + u'"';
}

QVariant RecordTable::toSql(const QVariant& value)
{
    switch (value.metaType().id()) {
    case QMetaType::QUuid: {
        const QUuid id = value.toUuid();
        return id.isNull() ? QVariant() : QVariant(id.toString(QUuid::WithoutBraces));
    }
    case QMetaType::QDateTime: {
        const QDateTime t = value.toDateTime();
        return t.isValid() ? QVariant(double(t.toMSecsSinceEpoch()) / 1000.0) : QVariant();
    }
    case QMetaType::QString:
        return value.toString().isNull() ? QVariant() : value;
    default:
        return value;
    }
}

QVariant RecordTable::fromSql(const QVariant& stored, QMetaType type)
{
    switch (type.id()) {
    case QMetaType::QUuid:
        return stored.isNull() ? QUuid() : QUuid::fromString(stored.toString());
    case QMetaType::QDateTime:
        return stored.isNull()
                   ? QDateTime()
                   : QDateTime::fromMSecsSinceEpoch(std::llround(stored.toDouble() * 1000.0));
    case QMetaType::QString:
        return stored.isNull() ? QString() : stored.toString();
    case QMetaType::LongLong:
        return stored.toLongLong();
    case QMetaType::Bool:
        return stored.toLongLong() != 0;
    case QMetaType::QVariant: // optional integer
        return stored.isNull() ? QVariant() : QVariant(stored.toLongLong());
    default:
        return stored;
    }
}

bool RecordTable::select(StoreConnection& db, const QString& field, const QVariant& value,
                         QList<Record*>* out, QString* error) const
{
    QString sql = u"SELECT " + m_columns + u" FROM " + quoted(m_name);
    QVariantList values;
    if (!field.isEmpty()) {
        sql += u" WHERE " + quoted(field) + u" = ?";
        values.append(toSql(value));
    }
    sql += u" ORDER BY rowid";

    QList<QVariantList> rows;
    if (!db.exec(sql, values, &rows, error))
        return false;
    for (const QVariantList& row : std::as_const(rows)) {
        Record* record = m_create();
        for (int c = 0; c < m_properties.size(); ++c)
            m_properties[c].write(record, fromSql(row.value(c), m_properties[c].metaType()));
        out->append(record);
    }
    return true;
}

bool RecordTable::insert(StoreConnection& db, const Record* record, QString* error) const
{
    QStringList marks;
    QVariantList values;
    for (const QMetaProperty& p : m_properties) {
        marks.append(QStringLiteral("?"));
        values.append(toSql(p.read(record)));
    }
    return db.exec(u"INSERT INTO " + quoted(m_name) + u" (" + m_columns + u") VALUES (" +
                       marks.join(u", ") + u")",
                   values, nullptr, error);
}

bool RecordTable::update(StoreConnection& db, const Record* record, QString* error) const
{
    QStringList assignments;
    QVariantList values;
    for (const QMetaProperty& p : m_properties) {
        const QString name = QString::fromLatin1(p.name());
        if (name == m_keyField)
            continue;
        assignments.append(quoted(name) + u" = ?");
        values.append(toSql(p.read(record)));
    }
    values.append(record->key());
    return db.exec(u"UPDATE " + quoted(m_name) + u" SET " + assignments.join(u", ") + u" WHERE " +
                       quoted(m_keyField) + u" = ?",
                   values, nullptr, error);
}

bool RecordTable::remove(StoreConnection& db, const QString& key, QString* error) const
{
    return db.exec(u"DELETE FROM " + quoted(m_name) + u" WHERE " + quoted(m_keyField) + u" = ?",
                   {key}, nullptr, error);
}
