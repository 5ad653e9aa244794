#include "Theme.h"

#include <QApplication>
#include <QFontDatabase>
#include <QPalette>
#include <QWidget>

namespace {
// Point sizes relative to a 13-point body, the proportions desktop users know.
qreal pointSize(Theme::Font role)
{
    switch (role) {
    case Theme::Font::Caption2:
        return 8.5;
    case Theme::Font::Caption:
        return 9;
    case Theme::Font::Footnote:
        return 9.5;
    case Theme::Font::Callout:
        return 10.5;
    case Theme::Font::Body:
        return 10;
    case Theme::Font::Subheadline:
        return 9.5;
    case Theme::Font::Headline:
        return 10;
    case Theme::Font::Title3:
        return 13;
    case Theme::Font::Title2:
        return 15;
    case Theme::Font::Title:
        return 19;
    }
    return 10;
}
} // namespace

QFont Theme::font(Font role, QFont::Weight weight)
{
    QFont f = QApplication::font();
    f.setPointSizeF(pointSize(role));
    f.setWeight(role == Font::Headline && weight == QFont::Normal ? QFont::DemiBold : weight);
    return f;
}

QFont Theme::monospacedDigits(int pointSize, QFont::Weight weight)
{
    QFont f = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    f.setPointSize(pointSize);
    f.setWeight(weight);
    return f;
}

QFont Theme::system(int pointSize, QFont::Weight weight)
{
    QFont f = QApplication::font();
    f.setPointSize(pointSize);
    f.setWeight(weight);
    return f;
}

QColor Theme::secondary()
{
    return QApplication::palette().color(QPalette::PlaceholderText);
}

QColor Theme::secondary(qreal opacity)
{
    QColor c = secondary();
    c.setAlphaF(opacity);
    return c;
}

QColor Theme::accent()
{
    return QApplication::palette().color(QPalette::Highlight);
}

QColor Theme::windowBackground()
{
    return QApplication::palette().color(QPalette::Window);
}

QColor Theme::destructive()
{
    return QColor(0xd7, 0x00, 0x15);
}

void Theme::tint(QWidget* widget, const QColor& color)
{
    QPalette p = widget->palette();
    p.setColor(QPalette::WindowText, color);
    p.setColor(QPalette::Text, color);
    p.setColor(QPalette::ButtonText, color);
    widget->setPalette(p);
}

void Theme::makeSecondary(QWidget* widget)
{
    QPalette p = widget->palette();
    p.setColor(QPalette::WindowText, secondary());
    p.setColor(QPalette::Text, secondary());
    widget->setPalette(p);
}
