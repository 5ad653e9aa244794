#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

// One task as it travels: {"header", "priority"?, "checked", "subtasks"}.
struct WireTask
{
    QString header;
    std::optional<qint64> priority;
    bool checked = false;
    // Always sent empty; required on receipt but otherwise ignored.
    QStringList subtasks;

    QJsonObject toJson() const;
    // Absent with `error` set when `value` is not a valid task.
    static std::optional<WireTask> fromJson(const QJsonValue& value, const QString& path,
                                            QString* error);

    bool operator==(const WireTask&) const = default;
};
