#pragma once

#include "CellChart.h"
#include "HistoryReader.h"

// A habit's last year as a calendar: one cell a day, a column a week (Monday on
// top), shaded by how much of the day's target was reached; today is outlined and
// the months are named above their first week.
class HeatMapView final : public CellChart
{
    Q_OBJECT

public:
    static constexpr int Weeks = 53;

    explicit HeatMapView(QWidget* parent = nullptr);

    void setHabit(const HistoryReader::HabitDays& habit, QDate today);

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

private:
    HistoryReader::HabitDays m_habit;
    QDate m_today;
    QDate m_first; // the Monday of the first column
};
