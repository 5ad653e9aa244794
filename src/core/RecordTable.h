#pragma once

#include "RecordKind.h"

#include <QMetaObject>
#include <QMetaProperty>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <optional>

class Record;
class StoreConnection;

// How one record type maps onto its SQLite table. Columns are the type's own
// Q_PROPERTYs, by name. All row SQL lives here; the schema lives in DataStore.
class RecordTable
{
public:
    struct Cascade
    {
        RecordKind child;
        QString childField;
    };

    static const RecordTable& of(RecordKind kind);

    RecordKind kind() const { return m_kind; }
    QString name() const { return m_name; }
    QString keyField() const { return m_keyField; }
    const QMetaObject* metaObject() const { return m_meta; }
    std::optional<Cascade> cascade() const { return m_cascade; }
    QStringList fields() const;
    // The type's own properties, in declaration order.
    const QList<QMetaProperty>& properties() const { return m_properties; }
    // A new, empty, unowned record of this type.
    Record* create() const { return m_create(); }

    // Rows matching `field = value` (all rows when field is empty), in rowid order,
    // as new unowned records.
    bool select(StoreConnection& db, const QString& field, const QVariant& value,
                QList<Record*>* out, QString* error) const;
    bool insert(StoreConnection& db, const Record* record, QString* error) const;
    bool update(StoreConnection& db, const Record* record, QString* error) const;
    bool remove(StoreConnection& db, const QString& key, QString* error) const;

    // A property value as it is stored, and back.
    static QVariant toSql(const QVariant& value);
    static QVariant fromSql(const QVariant& stored, QMetaType type);

private:
    RecordTable(RecordKind kind, QString name, QString keyField, const QMetaObject* meta,
                std::function<Record*()> create, std::optional<Cascade> cascade);

    static QString quoted(const QString& identifier);

    QList<QMetaProperty> m_properties; // the type's own, in declaration order
    QString m_columns;                 // their quoted names, comma-separated

    RecordKind m_kind;
    QString m_name;
    QString m_keyField;
    const QMetaObject* m_meta;
    std::function<Record*()> m_create;
    std::optional<Cascade> m_cascade;
};
