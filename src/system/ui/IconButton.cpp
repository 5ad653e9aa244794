#include "IconButton.h"

#include <QPainter>
#include <QStyle>

IconButton::IconButton(QWidget* parent, const QColor& fill)
    : QToolButton(parent)
    , m_fill(fill)
{
    setAutoRaise(true);
    setFocusPolicy(Qt::TabFocus);
}

void IconButton::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    if (m_fill.alpha() > 0) {
        p.setPen(Qt::NoPen);
        p.setBrush(m_fill);
        const qreal radius = qMin(width(), height()) / 2.0;
        p.drawRoundedRect(QRectF(rect()), radius, radius);
    }
    const QRect box = QStyle::alignedRect(layoutDirection(), Qt::AlignCenter, iconSize(), rect());
    icon().paint(&p, box, Qt::AlignCenter, isEnabled() ? QIcon::Normal : QIcon::Disabled,
                 isChecked() ? QIcon::On : QIcon::Off);
    if (hasFocus() && window()->testAttribute(Qt::WA_KeyboardFocusChange)) {
        // Reached by Tab: keyboard users still see where they are.
        p.setPen(QPen(palette().color(QPalette::Highlight), 1.5));
        p.setBrush(Qt::NoBrush);
        const qreal radius = qMin(width(), height()) / 2.0 - 1;
        p.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), radius, radius);
    }
}
