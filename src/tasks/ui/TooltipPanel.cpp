#include "TooltipPanel.h"

#include "Theme.h"

#include <QPainter>
#include <QPainterPath>
#include <QTextLayout>

#include <cmath>

namespace {
// Lays `text` out in lines of at most `width`; returns the widest line and the height.
QSizeF layOut(QTextLayout& layout, qreal width)
{
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    qreal height = 0;
    qreal widest = 0;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        line.setPosition(QPointF(0, height));
        height += line.height();
        widest = std::max(widest, line.naturalTextWidth());
    }
    layout.endLayout();
    return {widest, height};
}
} // namespace

TooltipPanel::TooltipPanel(const QString& text)
    : QWidget(nullptr, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowDoesNotAcceptFocus | Qt::WindowTransparentForInput)
    , m_text(text)
{
    setObjectName(QStringLiteral("tooltipPanel"));
    setAccessibleName(text);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_TranslucentBackground);
    setFocusPolicy(Qt::NoFocus);
}

QFont TooltipPanel::labelFont()
{
    return Theme::system(11);
}

QSizeF TooltipPanel::textSize(const QString& text, qreal maxWidth)
{
    QTextLayout layout(text, labelFont());
    return layOut(layout, maxWidth);
}

void TooltipPanel::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), CornerRadius, CornerRadius);
    QColor fill = palette().color(QPalette::ToolTipBase);
    fill.setAlphaF(0.96);
    p.fillPath(path, fill);
    p.setPen(QPen(palette().color(QPalette::Mid), 1));
    p.drawPath(path);

    QTextLayout layout(m_text, labelFont());
    layOut(layout, width() - 2 * HorizontalInset);
    p.setPen(palette().color(QPalette::ToolTipText));
    layout.draw(&p, QPointF(HorizontalInset, VerticalInset));
}
