#include "BarChartView.h"

#include <QPainter>

namespace {
constexpr int Top = 16;    // room for the tallest bar's value
constexpr int Bottom = 18; // labels
constexpr int Side = 4;
} // namespace

BarChartView::BarChartView(QWidget* parent)
    : CellChart(parent)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void BarChartView::setBars(const QList<Bar>& bars)
{
    m_bars = bars;
    m_max = 0;
    for (const Bar& bar : bars)
        m_max = std::max(m_max, bar.value);
    setCurrentCell(-1);
    update();
}

QList<qint64> BarChartView::values() const
{
    QList<qint64> out;
    for (const Bar& bar : m_bars)
        out.append(bar.value);
    return out;
}

QRect BarChartView::slot(int cell) const
{
    const double each = double(width() - 2 * Side) / std::max<qsizetype>(1, m_bars.size());
    const int left = Side + int(cell * each);
    const int right = Side + int((cell + 1) * each);
    return QRect(left, Top, std::max(1, right - left), height() - Top - Bottom);
}

QRect BarChartView::cellRect(int cell) const
{
    const QRect s = slot(cell);
    const int gap = s.width() > 6 ? std::max(1, s.width() / 5) : 0;
    const qint64 value = m_bars.value(cell).value;
    const int h = m_max > 0 ? int(double(s.height()) * value / m_max) : 0;
    // An empty bar keeps a sliver to hover and click.
    const int shown = std::max(h, 2);
    return QRect(s.left() + gap / 2, s.bottom() - shown + 1, s.width() - gap, shown);
}

QSize BarChartView::sizeHint() const
{
    return QSize(std::max<int>(320, int(m_bars.size()) * 12), 130);
}

QSize BarChartView::minimumSizeHint() const
{
    return QSize(std::max<int>(120, int(m_bars.size()) * 3), 100);
}

void BarChartView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    const QColor bar = palette().color(QPalette::Highlight);
    const QColor muted = palette().color(QPalette::Window).darker(112);
    const QColor text = palette().color(QPalette::PlaceholderText);
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.8);
    p.setFont(small);
    for (int i = 0; i < cellCount(); ++i) {
        const QRect r = cellRect(i);
        p.fillRect(r, m_bars[i].value > 0 ? bar : muted);
        const QRect s = slot(i);
        p.setPen(text);
        if (m_bars[i].value > 0 && s.width() >= 16 + 4 * m_bars[i].shown.size())
            p.drawText(
                QRect(s.left(), r.top() - 15, s.width(), 14), Qt::AlignHCenter | Qt::AlignBottom,
                m_bars[i].shown.isEmpty() ? QString::number(m_bars[i].value) : m_bars[i].shown);
        if (!m_bars[i].label.isEmpty())
            p.drawText(QRect(s.left() - 10, height() - Bottom + 2, s.width() + 20, Bottom - 2),
                       Qt::AlignHCenter | Qt::AlignTop, m_bars[i].label);
    }
    p.setPen(muted.darker(130));
    p.drawLine(Side, height() - Bottom, width() - Side, height() - Bottom);
    paintCurrent(p);
}
