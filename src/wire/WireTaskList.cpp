#include "WireTaskList.h"

#include "WireReader.h"

#include <QJsonArray>

QJsonObject WireTaskList::toJson() const
{
    QJsonObject o;
    o.insert(QLatin1String("name"), name);
    if (highlightedTask)
        o.insert(QLatin1String("highlightedTask"), *highlightedTask);
    QJsonArray array;
    for (const WireTask& t : tasks)
        array.append(t.toJson());
    o.insert(QLatin1String("tasks"), array);
    return o;
}

std::optional<WireTaskList> WireTaskList::fromJson(const QJsonValue& value, const QString& path,
                                                   QString* error)
{
    WireReader r(value, path);
    WireTaskList list;
    list.name = r.requiredString(QStringLiteral("name"));
    list.highlightedTask = r.optionalInteger(QStringLiteral("highlightedTask"));
    const QJsonArray tasks = r.requiredArray(QStringLiteral("tasks"));
    if (!r.ok()) {
        *error = r.error();
        return std::nullopt;
    }
    const QString tasksPath = r.pathOf(QStringLiteral("tasks"));
    for (qsizetype i = 0; i < tasks.size(); ++i) {
        auto task =
            WireTask::fromJson(tasks.at(i), tasksPath + u'[' + QString::number(i) + u']', error);
        if (!task)
            return std::nullopt;
        list.tasks.append(std::move(*task));
    }
    return list;
}
