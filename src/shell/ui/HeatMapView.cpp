#include "HeatMapView.h"

#include "Theme.h"
#include <QLocale>

#include <QEvent>
#include <QPainter>

namespace {
constexpr int Cell = 11;
constexpr int Step = 13;
constexpr int Left = 30;   // weekday labels
constexpr int Months = 16; // month labels

QString longDate(QDate date)
{
    return QLocale(QLocale::English).toString(date, QStringLiteral("d MMMM yyyy"));
}
} // namespace

HeatMapView::HeatMapView(QWidget* parent)
    : CellChart(parent)
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void HeatMapView::measureTop()
{
    const int title = QFontMetrics(Theme::font(Theme::Font::Headline)).height();
    m_top = title + 4 + int(m_figures.size()) * fontMetrics().height() + 8 + Months;
}

void HeatMapView::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::FontChange) {
        measureTop();
        updateGeometry();
    }
    CellChart::changeEvent(event);
}

void HeatMapView::setHabit(const HistoryReader::HabitDays& habit, QDate today,
                           const QStringList& figures)
{
    // The keyboard stays on its day unless the days themselves moved (a new day began).
    const QDate current = currentCell() >= 0 ? dateOf(currentCell()) : QDate();
    m_habit = habit;
    m_figures = figures;
    m_today = today;
    measureTop();
    m_first = today.addDays(1 - today.dayOfWeek() - 7 * (Weeks - 1));
    setAccessibleName(habit.name + QStringLiteral(", last 12 months"));
    setAccessibleDescription(figures.join(u". "));
    setCurrentCell(current.isValid() ? cellOf(current) : -1);
    updateGeometry();
    update();
}

int HeatMapView::cellCount() const
{
    return m_today.isValid() ? int(m_first.daysTo(m_today)) + 1 : 0;
}

int HeatMapView::cellOf(QDate date) const
{
    const qint64 cell = m_first.daysTo(date);
    return cell >= 0 && cell < cellCount() ? int(cell) : -1;
}

QRect HeatMapView::cellRect(int cell) const
{
    return QRect(Left + (cell / 7) * Step, m_top + (cell % 7) * Step, Cell, Cell);
}

QString HeatMapView::cellText(int cell) const
{
    const QDate date = dateOf(cell);
    const QString prefix = m_habit.name + u", " + longDate(date) + u": ";
    if (m_habit.since.isValid() && date < m_habit.since)
        return prefix + QStringLiteral("not tracked yet");
    const auto day = m_habit.days.constFind(date);
    if (day == m_habit.days.cend())
        return prefix + QStringLiteral("0 of %1").arg(m_habit.maxValue);
    return prefix + QStringLiteral("%1 of %2").arg(day->value).arg(day->target);
}

QSize HeatMapView::sizeHint() const
{
    return QSize(Left + Weeks * Step, m_top + 7 * Step);
}

int HeatMapView::neighbour(int cell, int key) const
{
    switch (key) {
    case Qt::Key_Up:
        return cell - 1;
    case Qt::Key_Down:
        return std::min(cell + 1, cellCount() - 1);
    case Qt::Key_Left:
        return cell >= 7 ? cell - 7 : cell;
    case Qt::Key_Right:
        return std::min(cell + 7, cellCount() - 1);
    default:
        return cell;
    }
}

void HeatMapView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing, false);
    const QFont headline = Theme::font(Theme::Font::Headline);
    const int titleHeight = QFontMetrics(headline).height();
    p.setFont(headline);
    p.setPen(palette().color(QPalette::WindowText));
    p.drawText(QRect(0, 0, width(), titleHeight), Qt::AlignLeft | Qt::AlignVCenter,
               m_habit.icon.isEmpty() ? m_habit.name : m_habit.icon + u' ' + m_habit.name);
    p.setFont(font());
    const int lineHeight = fontMetrics().height();
    for (qsizetype i = 0; i < m_figures.size(); ++i)
        p.drawText(QRect(0, titleHeight + 4 + int(i) * lineHeight, width(), lineHeight),
                   Qt::AlignLeft | Qt::AlignVCenter, m_figures[i]);

    const int Top = m_top;
    const QColor text = palette().color(QPalette::PlaceholderText);
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.8);
    p.setFont(small);
    p.setPen(text);
    const QLocale english(QLocale::English);
    for (int row : {0, 2, 4})
        p.drawText(QRect(0, Top + row * Step - 2, Left - 4, Step),
                   Qt::AlignRight | Qt::AlignVCenter,
                   english.dayName(row + 1, QLocale::ShortFormat));
    for (int week = 0; week < Weeks; ++week) {
        const QDate monday = m_first.addDays(7 * week);
        const QDate sunday = monday.addDays(6);
        if (monday.day() == 1 || sunday.month() != monday.month() || week == 0) {
            const QDate month = monday.day() == 1 || week == 0 ? monday : sunday;
            if (week == 0 && monday.day() > 21)
                continue; // the first column's month is named by the next
            p.drawText(QPoint(Left + week * Step, Top - 4),
                       english.monthName(month.month(), QLocale::ShortFormat));
        }
    }

    const QColor full = QColor::fromString(m_habit.colorHex).isValid()
                            ? QColor::fromString(m_habit.colorHex)
                            : palette().color(QPalette::Highlight);
    const QColor empty = palette().color(QPalette::Window).darker(112);
    p.setPen(Qt::NoPen);
    for (int cell = 0; cell < cellCount(); ++cell) {
        const QDate date = dateOf(cell);
        QColor colour = empty;
        if (m_habit.since.isValid() && date < m_habit.since) {
            colour.setAlphaF(0.35);
        } else if (const auto day = m_habit.days.constFind(date); day != m_habit.days.cend()) {
            const double share =
                day->target > 0 ? std::clamp(double(day->value) / day->target, 0.0, 1.0) : 0.0;
            if (share > 0) {
                // A quarter of the colour for any count, all of it at the target.
                const double t = 0.25 + 0.75 * share;
                colour = QColor::fromRgbF(empty.redF() + (full.redF() - empty.redF()) * t,
                                          empty.greenF() + (full.greenF() - empty.greenF()) * t,
                                          empty.blueF() + (full.blueF() - empty.blueF()) * t);
            }
        }
        p.setBrush(colour);
        p.drawRect(cellRect(cell));
    }
    if (const int today = cellOf(m_today); today >= 0) {
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(palette().color(QPalette::WindowText), 1.5));
        p.drawRect(QRectF(cellRect(today)).adjusted(0.5, 0.5, -0.5, -0.5));
    }
    paintCurrent(p);
}
