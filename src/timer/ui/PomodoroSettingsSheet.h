#pragma once

#include <QDialog>

class QCheckBox;
class LimitedSpinBox;
class PomodoroService;

// Edits the four timer lengths and the auto-start switch. Save hands all five
// values to the engine in one call; Cancel (Escape) leaves it untouched.
class PomodoroSettingsSheet final : public QDialog
{
    Q_OBJECT

public:
    explicit PomodoroSettingsSheet(PomodoroService& timer, QWidget* parent = nullptr);

    LimitedSpinBox* focusField() const { return m_pomodoro; }
    LimitedSpinBox* shortBreakField() const { return m_shortBreak; }
    LimitedSpinBox* longBreakField() const { return m_longBreak; }
    LimitedSpinBox* intervalField() const { return m_interval; }
    QCheckBox* autoStartSwitch() const { return m_autoStart; }

private:
    void save();

    PomodoroService& m_timer;
    LimitedSpinBox* m_pomodoro = nullptr;
    LimitedSpinBox* m_shortBreak = nullptr;
    LimitedSpinBox* m_longBreak = nullptr;
    LimitedSpinBox* m_interval = nullptr;
    QCheckBox* m_autoStart = nullptr;
};
