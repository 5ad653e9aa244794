#pragma once

#include <QString>

class QFontMetrics;

// A user's text (a list name) made fit for a button or menu entry: "&" shown as
// itself instead of marking a keyboard shortcut, and long text cut with "…".
class MenuText
{
public:
    MenuText() = delete;

    static QString literal(const QString& text);
    static QString fitted(const QString& text, const QFontMetrics& metrics, int width);
};
