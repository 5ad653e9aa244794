#pragma once

#include <QJsonObject>
#include <QString>

#include <optional>

// One habit as it travels. `firstTrackerDate` is kept as the wire text: the
// receiver decides what an unparsable date means.
struct WireHabit
{
    QString icon;
    QString name;
    QString color;
    qint64 maxValue = 0;
    qint64 currentValue = 0;
    QString firstTrackerDate;

    QJsonObject toJson() const;
    static std::optional<WireHabit> fromJson(const QJsonValue& value, const QString& path,
                                             QString* error);

    bool operator==(const WireHabit&) const = default;
};
