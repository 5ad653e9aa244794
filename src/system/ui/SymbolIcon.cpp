#include "SymbolIcon.h"

#include <QApplication>
#include <QHash>
#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>

namespace {
// One table: symbol name -> freedesktop icon name.
const QHash<QString, QString>& themeNames()
{
    static const QHash<QString, QString> names{
        {QStringLiteral("play.fill"), QStringLiteral("media-playback-start")},
        {QStringLiteral("pause.fill"), QStringLiteral("media-playback-pause")},
        {QStringLiteral("forward.fill"), QStringLiteral("media-skip-forward")},
        {QStringLiteral("arrow.counterclockwise"), QStringLiteral("edit-undo")},
        {QStringLiteral("arrow.clockwise"), QStringLiteral("view-refresh")},
        {QStringLiteral("gearshape"), QStringLiteral("preferences-system")},
        {QStringLiteral("xmark"), QStringLiteral("window-close")},
        {QStringLiteral("plus"), QStringLiteral("list-add")},
        {QStringLiteral("trash"), QStringLiteral("edit-delete")},
        {QStringLiteral("safari"), QStringLiteral("web-browser")},
    };
    return names;
}

// Draws symbols into a unit square scaled to a rectangle. Each group answers
// whether it knows the symbol.
class GlyphPainter
{
public:
    GlyphPainter(QPainter& p, const QRectF& r, const QColor& color)
        : m_p(p)
        , m_r(r)
        , m_color(color)
        , m_w(r.width())
        , m_pen(color, qMax<qreal>(1.2, m_w * 0.1), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin)
    {
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(m_pen);
        p.setBrush(Qt::NoBrush);
    }

    void paint(const QString& s)
    {
        if (!media(s) && !controls(s) && !marks(s) && !emblems(s)) {
            m_p.setBrush(m_color);
            m_p.drawEllipse(QRectF(at(0.3, 0.3), at(0.7, 0.7)));
        }
    }

private:
    QPointF at(qreal x, qreal y) const
    {
        return QPointF(m_r.left() + x * m_w, m_r.top() + y * m_w);
    }
    QRectF circle() const { return QRectF(at(0.08, 0.08), at(0.92, 0.92)); }

    void triangle(qreal left, qreal top, qreal tipX, qreal bottom)
    {
        QPainterPath path(at(left, top));
        path.lineTo(at(tipX, 0.5));
        path.lineTo(at(left, bottom));
        path.closeSubpath();
        m_p.fillPath(path, m_color);
    }

    // The timer's buttons.
    bool media(const QString& s)
    {
        QPainter& p = m_p;
        const QColor& color = m_color;
        const qreal w = m_w;
        if (s == u"play.fill") {
            triangle(0.28, 0.18, 0.82, 0.82);
        } else if (s == u"pause.fill") {
            p.fillRect(QRectF(at(0.25, 0.18), at(0.42, 0.82)), color);
            p.fillRect(QRectF(at(0.58, 0.18), at(0.75, 0.82)), color);
        } else if (s == u"forward.fill") {
            for (qreal dx : {0.08, 0.46})
                triangle(dx, 0.25, dx + 0.42, 0.75);
        } else if (s.startsWith(u"arrow.counterclockwise") || s == u"arrow.clockwise") {
            const bool ccw = s.startsWith(u"arrow.counterclockwise");
            const QRectF arc(at(0.2, 0.2), at(0.8, 0.8));
            p.drawArc(arc, ccw ? 100 * 16 : 80 * 16, ccw ? 280 * 16 : -280 * 16);
            const QPointF tip = ccw ? at(0.42, 0.2) : at(0.58, 0.2);
            const qreal dir = ccw ? 1 : -1;
            p.drawLine(tip, tip + QPointF(dir * 0.14 * w, -0.1 * w));
            p.drawLine(tip, tip + QPointF(dir * 0.14 * w, 0.12 * w));
        } else {
            return false;
        }
        return true;
    }

    // Settings, close and add.
    bool controls(const QString& s)
    {
        QPainter& p = m_p;
        const qreal w = m_w;
        if (s == u"gearshape") {
            p.drawEllipse(QRectF(at(0.3, 0.3), at(0.7, 0.7)));
            for (int i = 0; i < 8; ++i) {
                p.save();
                p.translate(at(0.5, 0.5));
                p.rotate(i * 45);
                p.drawLine(QPointF(0, -0.22 * w), QPointF(0, -0.36 * w));
                p.restore();
            }
        } else if (s == u"xmark") {
            p.drawLine(at(0.28, 0.28), at(0.72, 0.72));
            p.drawLine(at(0.72, 0.28), at(0.28, 0.72));
        } else if (s == u"plus" || s == u"plus.circle.fill") {
            if (s == u"plus.circle.fill") {
                p.setBrush(m_color);
                p.setPen(Qt::NoPen);
                p.drawEllipse(circle());
                m_pen.setColor(QApplication::palette().color(QPalette::Base));
                p.setPen(m_pen);
            }
            p.drawLine(at(0.5, 0.28), at(0.5, 0.72));
            p.drawLine(at(0.28, 0.5), at(0.72, 0.5));
        } else {
            return false;
        }
        return true;
    }

    // Check, menu and tool marks.
    bool marks(const QString& s)
    {
        QPainter& p = m_p;
        const QColor& color = m_color;
        const qreal w = m_w;
        if (s == u"checkmark" || s == u"checkmark.circle") {
            if (s == u"checkmark.circle")
                p.drawEllipse(circle());
            QPainterPath path(at(0.3, 0.52));
            path.lineTo(at(0.45, 0.67));
            path.lineTo(at(0.72, 0.36));
            p.drawPath(path);
        } else if (s == u"chevron.right.2") {
            QPainterPath path;
            for (qreal x : {0.25, 0.5625}) {
                path.moveTo(at(x, 0.25));
                path.lineTo(at(x + 0.22, 0.5));
                path.lineTo(at(x, 0.75));
            }
            p.drawPath(path);
        } else if (s == u"chevron.down") {
            QPainterPath path(at(0.28, 0.4));
            path.lineTo(at(0.5, 0.62));
            path.lineTo(at(0.72, 0.4));
            p.drawPath(path);
        } else if (s == u"ellipsis.circle") {
            p.drawEllipse(circle());
            p.setBrush(color);
            for (qreal x : {0.32, 0.5, 0.68})
                p.drawEllipse(at(x, 0.5), 0.03 * w, 0.03 * w);
        } else if (s == u"hammer") {
            p.drawLine(at(0.3, 0.8), at(0.62, 0.38));
            QPainterPath head(at(0.45, 0.22));
            head.lineTo(at(0.78, 0.46));
            head.lineTo(at(0.7, 0.56));
            head.lineTo(at(0.38, 0.32));
            head.closeSubpath();
            p.fillPath(head, color);
        } else if (s == u"trash") {
            p.drawLine(at(0.22, 0.28), at(0.78, 0.28));
            p.drawLine(at(0.42, 0.2), at(0.58, 0.2));
            p.drawRoundedRect(QRectF(at(0.3, 0.28), at(0.7, 0.82)), 0.05 * w, 0.05 * w);
        } else {
            return false;
        }
        return true;
    }

    // Round emblems: habits, the account, the browser.
    bool emblems(const QString& s)
    {
        QPainter& p = m_p;
        const QColor& color = m_color;
        if (s == u"drop.circle") {
            p.drawEllipse(circle());
            QPainterPath drop(at(0.5, 0.25));
            drop.cubicTo(at(0.5, 0.25), at(0.68, 0.5), at(0.68, 0.58));
            drop.cubicTo(at(0.68, 0.7), at(0.6, 0.76), at(0.5, 0.76));
            drop.cubicTo(at(0.4, 0.76), at(0.32, 0.7), at(0.32, 0.58));
            drop.cubicTo(at(0.32, 0.5), at(0.5, 0.25), at(0.5, 0.25));
            p.fillPath(drop, color);
        } else if (s.startsWith(u"person.crop.circle")) {
            p.drawEllipse(circle());
            p.drawEllipse(QRectF(at(0.38, 0.26), at(0.62, 0.5)));
            // The shoulders: 140 degrees of an ellipse as one cubic, whose control
            // points are worked out here rather than by drawArc's trigonometry,
            // which would bring more of the maths library in at every start.
            QPainterPath shoulders(at(0.7255, 0.6916));
            shoulders.cubicTo(at(0.6489, 0.5161), at(0.3511, 0.5161), at(0.2745, 0.6916));
            p.drawPath(shoulders);
        } else if (s == u"safari") {
            p.drawEllipse(circle());
            QPainterPath needle(at(0.66, 0.34));
            needle.lineTo(at(0.54, 0.54));
            needle.lineTo(at(0.34, 0.66));
            needle.lineTo(at(0.46, 0.46));
            needle.closeSubpath();
            p.fillPath(needle, color);
        } else {
            return false;
        }
        return true;
    }

    QPainter& m_p;
    QRectF m_r;
    QColor m_color;
    qreal m_w;
    QPen m_pen;
};

// Draws a symbol into a unit square scaled to `r`.
void paintGlyph(QPainter& p, const QString& s, const QRectF& r, const QColor& color)
{
    GlyphPainter(p, r, color).paint(s);
}

class GlyphEngine final : public QIconEngine
{
public:
    GlyphEngine(QString symbol, QColor color)
        : m_symbol(std::move(symbol))
        , m_color(std::move(color))
    {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override
    {
        QColor c =
            m_color.isValid() ? m_color : QApplication::palette().color(QPalette::ButtonText);
        if (mode == QIcon::Disabled)
            c.setAlphaF(0.35);
        const int side = qMin(rect.width(), rect.height());
        const QRectF square(rect.x() + (rect.width() - side) / 2.0,
                            rect.y() + (rect.height() - side) / 2.0, side, side);
        painter->save();
        paintGlyph(*painter, m_symbol, square, c);
        painter->restore();
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        QPixmap pm(size);
        pm.fill(Qt::transparent);
        QPainter p(&pm);
        paint(&p, QRect(QPoint(), size), mode, state);
        return pm;
    }

    QIconEngine* clone() const override { return new GlyphEngine(m_symbol, m_color); }

private:
    QString m_symbol;
    QColor m_color;
};
} // namespace

QString SymbolIcon::themeName(const QString& symbol)
{
    return themeNames().value(symbol);
}

QIcon SymbolIcon::drawn(const QString& symbol, const QColor& color)
{
    return QIcon(new GlyphEngine(symbol, color));
}

QIcon SymbolIcon::fromDesktopTheme(const QString& name)
{
    // hicolor, the fallback when the desktop names no theme, holds application
    // icons only; asking it would just parse its large index for nothing.
    const QString theme = QIcon::themeName();
    if (name.isEmpty() || theme.isEmpty() || theme == u"hicolor" || !QIcon::hasThemeIcon(name))
        return {};
    return QIcon::fromTheme(name);
}

QIcon SymbolIcon::icon(const QString& symbol, const QColor& color)
{
    const QIcon themed = color.isValid() ? QIcon() : fromDesktopTheme(themeName(symbol));
    return themed.isNull() ? drawn(symbol, color) : themed;
}
