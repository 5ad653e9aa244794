#pragma once

#include "WireTask.h"

#include <QList>

// One task list as it travels: {"name", "highlightedTask"?, "tasks"}.
struct WireTaskList
{
    QString name;
    // Index into `tasks` of the focus task.
    std::optional<qint64> highlightedTask;
    QList<WireTask> tasks;

    QJsonObject toJson() const;
    static std::optional<WireTaskList> fromJson(const QJsonValue& value, const QString& path,
                                                QString* error);

    bool operator==(const WireTaskList&) const = default;
};
