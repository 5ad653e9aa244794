#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

// Timestamps on the wire: "2024-03-05T14:07:09Z", always UTC, no fractions.
class WireDate
{
public:
    static QString format(const QDateTime& when);
    // Accepts exactly the form format() writes; anything else is absent.
    static std::optional<QDateTime> parse(const QString& text);
};
