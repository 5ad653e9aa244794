#include "CellChart.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QToolTip>

namespace {
class CellChartAccessible;

// One cell as assistive technology sees it.
class CellAccessible final : public QAccessibleInterface
{
public:
    CellAccessible(CellChartAccessible* chart, int cell)
        : m_chart(chart)
        , m_cell(cell)
    {}

    bool isValid() const override;
    QObject* object() const override { return nullptr; }
    QWindow* window() const override;
    QAccessibleInterface* parent() const override;
    QAccessibleInterface* child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QAccessibleInterface* childAt(int, int) const override { return nullptr; }
    QString text(QAccessible::Text t) const override;
    void setText(QAccessible::Text, const QString&) override {}
    QRect rect() const override;
    QAccessible::Role role() const override { return QAccessible::ListItem; }
    QAccessible::State state() const override;

private:
    CellChart* chart() const;

    CellChartAccessible* m_chart;
    int m_cell;
};

// The chart: a list whose items are its cells. Cell interfaces are made when first
// asked for and live as long as the chart's.
class CellChartAccessible final : public QAccessibleWidget
{
public:
    explicit CellChartAccessible(CellChart* chart)
        : QAccessibleWidget(chart, QAccessible::List)
    {}
    ~CellChartAccessible() override
    {
        for (QAccessible::Id id : std::as_const(m_ids))
            QAccessible::deleteAccessibleInterface(id);
    }

    CellChart* chart() const { return static_cast<CellChart*>(widget()); }
    int childCount() const override { return chart()->cellCount(); }
    QAccessibleInterface* child(int index) const override
    {
        if (index < 0 || index >= childCount())
            return nullptr;
        if (!m_ids.contains(index))
            m_ids.insert(index, QAccessible::registerAccessibleInterface(new CellAccessible(
                                    const_cast<CellChartAccessible*>(this), index)));
        return QAccessible::accessibleInterface(m_ids.value(index));
    }
    int indexOfChild(const QAccessibleInterface* child) const override
    {
        for (auto it = m_ids.cbegin(); it != m_ids.cend(); ++it) {
            if (QAccessible::accessibleInterface(it.value()) == child)
                return it.key();
        }
        return -1;
    }
    QAccessibleInterface* childAt(int x, int y) const override
    {
        return child(chart()->cellAt(chart()->mapFromGlobal(QPoint(x, y))));
    }

private:
    mutable QHash<int, QAccessible::Id> m_ids;
};

bool CellAccessible::isValid() const
{
    return m_chart->isValid() && m_cell < chart()->cellCount();
}

CellChart* CellAccessible::chart() const
{
    return m_chart->chart();
}

QWindow* CellAccessible::window() const
{
    return m_chart->window();
}

QAccessibleInterface* CellAccessible::parent() const
{
    return m_chart;
}

QString CellAccessible::text(QAccessible::Text t) const
{
    if (t == QAccessible::Name || t == QAccessible::Description)
        return chart()->cellText(m_cell);
    return {};
}

QRect CellAccessible::rect() const
{
    const QRect local = chart()->cellRect(m_cell);
    return QRect(chart()->mapToGlobal(local.topLeft()), local.size());
}

QAccessible::State CellAccessible::state() const
{
    QAccessible::State s;
    s.focusable = true;
    s.selectable = true;
    s.selected = chart()->currentCell() == m_cell;
    s.focused = s.selected && chart()->hasFocus();
    return s;
}

QAccessibleInterface* chartFactory(const QString&, QObject* object)
{
    if (auto* chart = qobject_cast<CellChart*>(object))
        return new CellChartAccessible(chart);
    return nullptr;
}
} // namespace

CellChart::CellChart(QWidget* parent)
    : QWidget(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(false);
}

void CellChart::installAccessibility()
{
    static const bool installed = [] {
        QAccessible::installFactory(chartFactory);
        return true;
    }();
    Q_UNUSED(installed);
}

int CellChart::cellAt(const QPoint& point) const
{
    for (int i = 0; i < cellCount(); ++i) {
        if (cellRect(i).contains(point))
            return i;
    }
    return -1;
}

void CellChart::setCurrentCell(int cell)
{
    // -1 leaves no cell current; anything else lands on a cell.
    if (cell != -1)
        cell = std::clamp(cell, cellCount() > 0 ? 0 : -1, cellCount() - 1);
    if (cell == m_current)
        return;
    m_current = cell;
    update();
    if (cell >= 0 && QAccessible::isActive()) {
        QAccessibleEvent focus(this, QAccessible::Focus);
        focus.setChild(cell);
        QAccessible::updateAccessibility(&focus);
    }
}

int CellChart::neighbour(int cell, int key) const
{
    switch (key) {
    case Qt::Key_Left:
        return cell - 1;
    case Qt::Key_Right:
        return cell + 1;
    default:
        return cell;
    }
}

void CellChart::paintCurrent(QPainter& painter) const
{
    if (!hasFocus() || m_current < 0)
        return;
    painter.save();
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
    painter.drawRect(cellRect(m_current).adjusted(-1, -1, 1, 1));
    painter.restore();
}

bool CellChart::event(QEvent* event)
{
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        const int cell = cellAt(help->pos());
        if (cell >= 0)
            QToolTip::showText(help->globalPos(), cellText(cell), this, cellRect(cell));
        else
            QToolTip::hideText();
        return true;
    }
    return QWidget::event(event);
}

void CellChart::keyPressEvent(QKeyEvent* event)
{
    if (cellCount() == 0)
        return QWidget::keyPressEvent(event);
    switch (event->key()) {
    case Qt::Key_Home:
        setCurrentCell(0);
        break;
    case Qt::Key_End:
        setCurrentCell(cellCount() - 1);
        break;
    case Qt::Key_Left:
    case Qt::Key_Right:
    case Qt::Key_Up:
    case Qt::Key_Down:
        setCurrentCell(neighbour(m_current, event->key()));
        break;
    default:
        return QWidget::keyPressEvent(event);
    }
    QToolTip::showText(mapToGlobal(cellRect(m_current).bottomLeft()), cellText(m_current), this);
}

void CellChart::mousePressEvent(QMouseEvent* event)
{
    const int cell = cellAt(event->position().toPoint());
    if (cell >= 0)
        setCurrentCell(cell);
    QWidget::mousePressEvent(event);
}

void CellChart::focusInEvent(QFocusEvent* event)
{
    // The keyboard starts on the latest cell: today, this week.
    if (m_current < 0)
        setCurrentCell(cellCount() - 1);
    QWidget::focusInEvent(event);
}
