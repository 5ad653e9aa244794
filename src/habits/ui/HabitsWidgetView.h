#pragma once

#include <QList>
#include <QWidget>

class Habit;
class HabitRow;
class HabitsService;
class ModelContext;
class QScrollArea;
class QToolButton;
class QVBoxLayout;

// The habits widget: every habit in order with its count and progress, the
// empty state, and (unless view-only) buttons to count, reset and edit. A live
// view of the store: rows are rebuilt only when the set or order of habits
// changes; a count change repaints its own row.
class HabitsWidgetView final : public QWidget
{
    Q_OBJECT

public:
    HabitsWidgetView(HabitsService& habits, ModelContext& context, bool viewOnly,
                     QWidget* parent = nullptr);

    QList<HabitRow*> rows() const { return m_rows; }
    bool isShowingEmptyState() const;
    // Opens the editor window for a new habit (null) or an existing one.
    void openEditor(Habit* habit);

protected:
    void showEvent(QShowEvent* event) override;

private:
    void reload();

    HabitsService& m_habits;
    ModelContext& m_context;
    bool m_viewOnly;
    QVBoxLayout* m_list;
    QWidget* m_empty;
    QList<HabitRow*> m_rows;
    QList<QString> m_shownKeys;
};
