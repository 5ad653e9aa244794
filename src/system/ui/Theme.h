#pragma once

#include <QColor>
#include <QFont>

class QWidget;

// The few font and colour roles the views use, mapped onto the platform's palette
// and default font, so every view speaks the same visual language.
class Theme
{
public:
    enum class Font {
        Caption2,
        Caption,
        Footnote,
        Callout,
        Body,
        Subheadline,
        Headline,
        Title3,
        Title2,
        Title,
    };

    static QFont font(Font role, QFont::Weight weight = QFont::Normal);
    // A fixed pixel-size font with monospaced digits (timer texts).
    static QFont monospacedDigits(int pointSize, QFont::Weight weight = QFont::Medium);
    static QFont system(int pointSize, QFont::Weight weight = QFont::Normal);

    // "Secondary" text and the faint fills built from it.
    static QColor secondary();
    static QColor secondary(qreal opacity);
    static QColor accent();
    // Errors and actions that remove something.
    static QColor destructive();
    static QColor windowBackground();

    // Sets the colour a widget draws its text and lines in. Through the palette, not
    // a style sheet: one style sheet anywhere loads Qt's style sheet engine.
    static void tint(QWidget* widget, const QColor& color);
    // Sets the text colour of a label-like widget to the secondary colour.
    static void makeSecondary(QWidget* widget);
};
