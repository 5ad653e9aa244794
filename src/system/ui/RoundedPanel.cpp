#include "RoundedPanel.h"

#include <QPainter>

RoundedPanel::RoundedPanel(const QColor& fill, qreal radius, QWidget* parent)
    : QWidget(parent)
    , m_fill(fill)
    , m_radius(radius)
{}

void RoundedPanel::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(m_fill);
    p.drawRoundedRect(QRectF(rect()), m_radius, m_radius);
}
