#include "ShellStyle.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QWidget>

namespace {
// "»": the menu bar's button for menus that no longer fit.
QIcon chevrons(const QColor& color)
{
    QPixmap pixmap(16, 16);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(color, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    QPainterPath path;
    for (qreal x : {4.0, 9.0}) {
        path.moveTo(x, 4);
        path.lineTo(x + 3.5, 8);
        path.lineTo(x, 12);
    }
    painter.drawPath(path);
    return QIcon(pixmap);
}
} // namespace

QIcon ShellStyle::standardIcon(StandardPixmap icon, const QStyleOption* option,
                               const QWidget* widget) const
{
    if (icon == SP_ToolBarHorizontalExtensionButton)
        return chevrons(
            (widget ? widget->palette() : standardPalette()).color(QPalette::ButtonText));
    return QProxyStyle::standardIcon(icon, option, widget);
}
