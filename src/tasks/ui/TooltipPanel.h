#pragma once

#include <QWidget>

class QLabel;

// The tooltip window: a rounded, translucent frame around one wrapped label. It
// floats above other windows, never takes focus and lets clicks through.
class TooltipPanel final : public QWidget
{
    Q_OBJECT

public:
    static constexpr int CornerRadius = 6;
    static constexpr int HorizontalInset = 8;
    static constexpr int VerticalInset = 4;

    explicit TooltipPanel(const QString& text);

    QString text() const;
    // The label font: the system font at 11 points.
    static QFont labelFont();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QLabel* m_label = nullptr;
};
