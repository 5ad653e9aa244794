#include "HabitColor.h"

std::optional<QColor> HabitColor::parse(const QString& hex)
{
    QString text = hex.trimmed();
    if (text.startsWith(u'#'))
        text.remove(0, 1);
    if (text.size() != 6)
        return std::nullopt;
    for (QChar c : text) {
        if (!c.isDigit() && !(c >= u'a' && c <= u'f') && !(c >= u'A' && c <= u'F'))
            return std::nullopt;
    }
    const uint rgb = text.toUInt(nullptr, 16);
    return QColor::fromRgb((rgb >> 16) & 0xFF, (rgb >> 8) & 0xFF, rgb & 0xFF);
}

QColor HabitColor::orFallback(const QString& hex, const QColor& fallback)
{
    return parse(hex).value_or(fallback);
}
