#pragma once

#include <QPointer>
#include <QWidget>

#include "Habit.h"
class ElidedLabel;
class HabitsService;
class ModelContext;
class QLabel;
class QToolButton;

// One habit in the habits widget: icon, name, count against the target, a
// progress bar, and (unless view-only) the count/reset and edit buttons. It
// follows its habit's own change signals, so a count repaints only this row.
class HabitRow final : public QWidget
{
    Q_OBJECT

public:
    HabitRow(HabitsService& habits, ModelContext& context, Habit* habit, bool viewOnly,
             QWidget* parent = nullptr);

    Habit* habit() const { return m_habit; }
    // currentValue / maxValue, 0 when the target is below 1, capped at 1.
    static double progress(qint64 current, qint64 max);
    QColor color() const;

signals:
    void editRequested(Habit* habit);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void refresh();

    HabitsService& m_habits;
    ModelContext& m_context;
    QPointer<Habit> m_habit;
    bool m_viewOnly;
    QLabel* m_icon;
    ElidedLabel* m_name;
    QLabel* m_count;
    QWidget* m_bar;
    QToolButton* m_action = nullptr;
    QToolButton* m_edit = nullptr;
};
