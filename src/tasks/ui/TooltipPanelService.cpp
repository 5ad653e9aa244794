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
    panel->setGeometry(geometryFor(labelSize(text), pointer, available));
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
    // The panel paints with the same layout, so what is measured is what shows.
    return TooltipPanel::textSize(text, MaxLabelWidth);
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
