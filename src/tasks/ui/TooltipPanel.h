#pragma once

#include <QWidget>

// The tooltip window: a rounded, translucent frame around the wrapped text. It
// floats above other windows, never takes focus and lets clicks through.
class TooltipPanel final : public QWidget
{
    Q_OBJECT

public:
    static constexpr int CornerRadius = 6;
    static constexpr int HorizontalInset = 8;
    static constexpr int VerticalInset = 4;

    explicit TooltipPanel(const QString& text);

    QString text() const { return m_text; }
    // The label font: the system font at 11 points.
    static QFont labelFont();
    // The size of `text` laid out at most `maxWidth` wide: wrapped between words,
    // and inside a word (a long URL) that is wider than a line on its own.
    static QSizeF textSize(const QString& text, qreal maxWidth);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_text;
};
