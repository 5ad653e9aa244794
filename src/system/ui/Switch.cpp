#include "Switch.h"

#include <QPainter>
#include <QStyleOptionFocusRect>

Switch::Switch(QWidget* parent)
    : QAbstractButton(parent)
{
    setCheckable(true);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setCursor(Qt::PointingHandCursor);
}

QSize Switch::sizeHint() const
{
    return {32, 18};
}

void Switch::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF track = QRectF(rect()).adjusted(1, 1, -1, -1);
    const qreal radius = track.height() / 2;
    QColor on = palette().color(QPalette::Highlight);
    QColor off = palette().color(QPalette::Mid);
    if (!isEnabled()) {
        on.setAlphaF(0.4);
        off.setAlphaF(0.4);
    }
    p.setPen(hasFocus() ? QPen(palette().color(QPalette::Highlight).darker(130), 1.5) : Qt::NoPen);
    p.setBrush(isChecked() ? on : off);
    p.drawRoundedRect(track, radius, radius);

    const qreal knob = track.height() - 4;
    const qreal x = isChecked() ? track.right() - 2 - knob : track.left() + 2;
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    p.drawEllipse(QRectF(x, track.top() + 2, knob, knob));
}
