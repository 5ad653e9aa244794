#include "WireTask.h"

#include "WireReader.h"

#include <QJsonArray>

QJsonObject WireTask::toJson() const
{
    QJsonObject o;
    o.insert(QLatin1String("header"), header);
    if (priority)
        o.insert(QLatin1String("priority"), *priority);
    o.insert(QLatin1String("checked"), checked);
    o.insert(QLatin1String("subtasks"), QJsonArray::fromStringList(subtasks));
    return o;
}

std::optional<WireTask> WireTask::fromJson(const QJsonValue& value, const QString& path,
                                           QString* error)
{
    WireReader r(value, path);
    WireTask t;
    t.header = r.requiredString(QStringLiteral("header"));
    t.priority = r.optionalInteger(QStringLiteral("priority"));
    t.checked = r.requiredBool(QStringLiteral("checked"));
    const QJsonArray subtasks = r.requiredArray(QStringLiteral("subtasks"));
    for (qsizetype i = 0; r.ok() && i < subtasks.size(); ++i) {
        if (subtasks.at(i).isString())
            t.subtasks.append(subtasks.at(i).toString());
        else
            r.fail(u"expected a string at " + r.pathOf(QStringLiteral("subtasks")) + u'[' +
                   QString::number(i) + u']');
    }
    if (!r.ok()) {
        *error = r.error();
        return std::nullopt;
    }
    return t;
}
