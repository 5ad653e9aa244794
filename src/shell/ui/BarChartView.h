#pragma once

#include "CellChart.h"

// Bars over a run of days, months or weeks; each bar has its own text for hover and
// assistive technology, and an optional label under the axis.
class BarChartView final : public CellChart
{
    Q_OBJECT

public:
    struct Bar
    {
        qint64 value = 0;
        QString label; // under the axis; empty for none
        QString text;  // "12 March 2026: 3 sessions"
        QString shown; // above the bar; the value when empty
    };

    explicit BarChartView(QWidget* parent = nullptr);

    void setBars(const QList<Bar>& bars);
    QList<qint64> values() const;

    int cellCount() const override { return int(m_bars.size()); }
    QRect cellRect(int cell) const override;
    QString cellText(int cell) const override { return m_bars.value(cell).text; }
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    // The slot a bar stands in, full height.
    QRect slot(int cell) const;

    QList<Bar> m_bars;
    qint64 m_max = 0;
};
