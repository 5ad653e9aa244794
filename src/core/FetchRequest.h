#pragma once

#include <QString>
#include <QVariant>

// What a fetch asks for: an optional equality filter on one field (which the
// store answers through its index) and an optional ascending sort field.
struct FetchRequest
{
    QString field;
    QVariant value;
    QString sortField;

    static FetchRequest where(const QString& field, const QVariant& value)
    {
        return {field, value, {}};
    }
    static FetchRequest sortedBy(const QString& field) { return {{}, {}, field}; }
    FetchRequest& orderedBy(const QString& sort)
    {
        sortField = sort;
        return *this;
    }
    bool hasFilter() const { return !field.isEmpty(); }
};
