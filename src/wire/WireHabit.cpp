#include "WireHabit.h"

#include "WireReader.h"

QJsonObject WireHabit::toJson() const
{
    QJsonObject o;
    o.insert(QLatin1String("icon"), icon);
    o.insert(QLatin1String("name"), name);
    o.insert(QLatin1String("color"), color);
    o.insert(QLatin1String("maxValue"), maxValue);
    o.insert(QLatin1String("currentValue"), currentValue);
    o.insert(QLatin1String("firstTrackerDate"), firstTrackerDate);
    return o;
}

std::optional<WireHabit> WireHabit::fromJson(const QJsonValue& value, const QString& path,
                                             QString* error)
{
    WireReader r(value, path);
    WireHabit h;
    h.icon = r.requiredString(QStringLiteral("icon"));
    h.name = r.requiredString(QStringLiteral("name"));
    h.color = r.requiredString(QStringLiteral("color"));
    h.maxValue = r.requiredInteger(QStringLiteral("maxValue"));
    h.currentValue = r.requiredInteger(QStringLiteral("currentValue"));
    h.firstTrackerDate = r.requiredString(QStringLiteral("firstTrackerDate"));
    if (!r.ok()) {
        *error = r.error();
        return std::nullopt;
    }
    return h;
}
