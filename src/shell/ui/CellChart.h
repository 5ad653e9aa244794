#pragma once

#include <QWidget>

// A chart of cells (days of a heat map, bars): each cell has a text ("Water,
// 12 March 2026: 6 of 8") shown on hover, read by assistive technology as the
// accessible name and description of a child of the chart, and reached with the
// arrow keys, Home and End.
class CellChart : public QWidget
{
    Q_OBJECT

public:
    explicit CellChart(QWidget* parent = nullptr);

    virtual int cellCount() const = 0;
    virtual QRect cellRect(int cell) const = 0;
    virtual QString cellText(int cell) const = 0;

    // The cell the keyboard is on; -1 when there is none.
    int currentCell() const { return m_current; }
    void setCurrentCell(int cell);
    int cellAt(const QPoint& point) const;

    // Makes assistive technology see charts' cells; once per process.
    static void installAccessibility();

protected:
    // The cell the arrow `key` leads to from `cell` (left/right by one by default).
    virtual int neighbour(int cell, int key) const;
    // Called by subclasses' paintEvent: the focus ring around the current cell.
    void paintCurrent(QPainter& painter) const;

    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;

private:
    int m_current = -1;
};
