#pragma once

#include <QWidget>

class Habit;
class HabitEditorSheet;
class HabitsService;
class ModelContext;

// The editor window's content: the form, whose every dismissal closes the window.
class HabitEditorWindowContent final : public QWidget
{
    Q_OBJECT

public:
    HabitEditorWindowContent(HabitsService& habits, ModelContext& context, Habit* existing,
                             QWidget* parent = nullptr);
    HabitEditorSheet* sheet() const { return m_sheet; }

private:
    HabitEditorSheet* m_sheet;
};
