#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

// Icons for the symbol names the views use ("play.fill", "gearshape", ...): the
// icon theme's equivalent when the theme has one, otherwise a drawn glyph in
// the given colour, so every button shows something legible on any desktop.
class SymbolIcon
{
public:
    static QIcon icon(const QString& symbol, const QColor& color = {});
    // The freedesktop icon name used for a symbol (empty when there is none).
    static QString themeName(const QString& symbol);
    // The desktop's icon theme's `name`; null when the desktop names no real theme
    // or the theme lacks it.
    static QIcon fromDesktopTheme(const QString& name);
    // Always the drawn glyph (used where the theme's artwork would not match).
    static QIcon drawn(const QString& symbol, const QColor& color = {});
};
