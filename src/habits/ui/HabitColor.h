#pragma once

#include <QColor>
#include <QString>

#include <optional>

// A habit's colorHex read as a colour: blanks trimmed, one optional "#", then
// exactly six hexadecimal digits; anything else is no colour.
class HabitColor
{
public:
    static std::optional<QColor> parse(const QString& hex);
    // The parsed colour, or `fallback` when the text is not one.
    static QColor orFallback(const QString& hex, const QColor& fallback);
};
