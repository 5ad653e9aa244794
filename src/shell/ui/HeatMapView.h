#pragma once

#include "CellChart.h"
#include "HistoryReader.h"

// One habit's history: its name and figures (streaks, rates) above its last year
// as a calendar — one cell a day, a column a week (Monday on top), shaded by how
// much of the day's target was reached, today outlined, months named above their
// first week. One widget per habit: a window of many habits stays quick to open.
class HeatMapView final : public CellChart
{
    Q_OBJECT

public:
    static constexpr int Weeks = 53;

    explicit HeatMapView(QWidget* parent = nullptr);

    // `figures`: the lines under the name; they are also the accessible description.
    void setHabit(const HistoryReader::HabitDays& habit, QDate today, const QStringList& figures);
    QStringList figures() const { return m_figures; }

    QDate firstDay() const { return m_first; }
    QDate dateOf(int cell) const { return m_first.addDays(cell); }
    // The cell of `date`, or -1 outside the year shown.
    int cellOf(QDate date) const;

    int cellCount() const override;
    QRect cellRect(int cell) const override;
    QString cellText(int cell) const override;
    QSize sizeHint() const override;

protected:
    int neighbour(int cell, int key) const override;
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    // Where the calendar starts, below the name and figures; kept, as every cell's
    // place depends on it.
    void measureTop();

    HistoryReader::HabitDays m_habit;
    QStringList m_figures;
    int m_top = 0;
    QDate m_today;
    QDate m_first; // the Monday of the first column
};
