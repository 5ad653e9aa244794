#include "ShellStyle.h"

#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QWidget>

namespace {
// "»": the menu bar's button for menus that no longer fit. Every menu bar asks for
// it when created, and it is rarely shown: it is drawn when first shown.
class ChevronsEngine final : public QIconEngine
{
public:
    explicit ChevronsEngine(const QColor& color)
        : m_color(color)
    {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode, QIcon::State) override
    {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->translate(rect.topLeft());
        painter->scale(rect.width() / 16.0, rect.height() / 16.0);
        painter->setPen(QPen(m_color, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        QPainterPath path;
        for (qreal x : {4.0, 9.0}) {
            path.moveTo(x, 4);
            path.lineTo(x + 3.5, 8);
            path.lineTo(x, 12);
        }
        painter->drawPath(path);
        painter->restore();
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(), size), mode, state);
        return pixmap;
    }

    QIconEngine* clone() const override { return new ChevronsEngine(m_color); }

private:
    QColor m_color;
};
} // namespace

QIcon ShellStyle::standardIcon(StandardPixmap icon, const QStyleOption* option,
                               const QWidget* widget) const
{
    if (icon == SP_ToolBarHorizontalExtensionButton)
        return QIcon(new ChevronsEngine(
            (widget ? widget->palette() : standardPalette()).color(QPalette::ButtonText)));
    return QProxyStyle::standardIcon(icon, option, widget);
}
