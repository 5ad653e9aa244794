#pragma once

#include <QColor>
#include <QWidget>

// A plain area painted as a filled rounded rectangle: the grouped rows of the hub
// and the card behind a floating widget.
class RoundedPanel final : public QWidget
{
    Q_OBJECT

public:
    RoundedPanel(const QColor& fill, qreal radius, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QColor m_fill;
    qreal m_radius;
};
