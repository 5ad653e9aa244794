#pragma once

#include <QDialog>

#include <functional>

class QCheckBox;
class LimitedSpinBox;

// Edits the four timer lengths and the auto-start switch. Save hands all five
// values to the engine in one call; Cancel (Escape) leaves it untouched.
class PomodoroSettingsSheet final : public QDialog
{
    Q_OBJECT

public:
    using SaveHandler = std::function<void(qint64 pomodoro, qint64 shortBreak, qint64 longBreak,
                                           qint64 pomodorosForLong, bool autoStart)>;

    explicit PomodoroSettingsSheet(QWidget* parent = nullptr);

    // Tests observe Save through this; the default calls the engine's updateSettings.
    static void setSaveHandler(SaveHandler handler);

    LimitedSpinBox* focusField() const { return m_pomodoro; }
    LimitedSpinBox* shortBreakField() const { return m_shortBreak; }
    LimitedSpinBox* longBreakField() const { return m_longBreak; }
    LimitedSpinBox* intervalField() const { return m_interval; }
    QCheckBox* autoStartSwitch() const { return m_autoStart; }

private:
    void save();

    LimitedSpinBox* m_pomodoro = nullptr;
    LimitedSpinBox* m_shortBreak = nullptr;
    LimitedSpinBox* m_longBreak = nullptr;
    LimitedSpinBox* m_interval = nullptr;
    QCheckBox* m_autoStart = nullptr;
};
