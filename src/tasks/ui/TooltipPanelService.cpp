#include "TooltipPanelService.h"

#include "TooltipPanel.h"

#include <QCursor>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QLayout>
#include <QScreen>

#include <cmath>

TooltipPanelService::TooltipPanelService(QObject* parent)
    : QObject(parent)
{}

TooltipPanelService& TooltipPanelService::shared()
{
    static TooltipPanelService* instance = new TooltipPanelService(qApp);
    return *instance;
}

void TooltipPanelService::show(const QString& text)
{
    hide();
    if (text.isEmpty())
        return;

    const QPoint pointer = QCursor::pos();
    std::optional<QRect> available;
    for (const QScreen* screen : QGuiApplication::screens()) {
        if (screen->geometry().contains(pointer)) {
            available = screen->availableGeometry();
            break;
        }
    }

    auto* panel = new TooltipPanel(text);
    QRect frame = geometryFor(labelSize(text), pointer, available);
    // The label lays out text a little differently from plain font metrics; never
    // cut off its last line.
    const int needed = panel->layout()->totalHeightForWidth(frame.width());
    if (needed > frame.height()) {
        frame.setHeight(needed);
        if (available && frame.bottom() > available->bottom() - ScreenInset)
            frame.moveBottom(available->bottom() - ScreenInset);
    }
    panel->setGeometry(frame);
    panel->show();
    m_panel = panel;
}

void TooltipPanelService::hide()
{
    if (m_panel) {
        m_panel->hide();
        m_panel->deleteLater();
    }
    m_panel = nullptr;
}

QSizeF TooltipPanelService::labelSize(const QString& text)
{
    const QFontMetricsF metrics(TooltipPanel::labelFont());
    return metrics
        .boundingRect(QRectF(0, 0, MaxLabelWidth, 1e6), Qt::TextWordWrap | Qt::AlignLeft, text)
        .size();
}

QRect TooltipPanelService::geometryFor(const QSizeF& label, const QPoint& pointer,
                                       const std::optional<QRect>& available)
{
    const int width = label.width() <= MinLabelWidth
                          ? int(MinLabelWidth) + 16
                          : int(std::ceil(std::min(label.width(), MaxLabelWidth))) + 16;
    const int height = int(std::ceil(label.height())) + 8;

    int x = pointer.x() + PointerOffsetX;
    int y = pointer.y() + PointerOffsetY;
    if (available) {
        const int right = available->x() + available->width();
        const int bottom = available->y() + available->height();
        x = std::max(x, available->x() + ScreenInset);
        // Applied last, so on a screen narrower than the window the right edge wins.
        x = std::min(x, right - width - ScreenInset);
        y = std::min(y, bottom - height - ScreenInset);
    }
    return {x, y, width, height};
}
