#pragma once

#include <QDialog>

#include <functional>

class QCheckBox;
class QSpinBox;

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

    QSpinBox* focusField() const { return m_pomodoro; }
    QSpinBox* shortBreakField() const { return m_shortBreak; }
    QSpinBox* longBreakField() const { return m_longBreak; }
    QSpinBox* intervalField() const { return m_interval; }
    QCheckBox* autoStartSwitch() const { return m_autoStart; }

private:
    void save();

    QSpinBox* m_pomodoro = nullptr;
    QSpinBox* m_shortBreak = nullptr;
    QSpinBox* m_longBreak = nullptr;
    QSpinBox* m_interval = nullptr;
    QCheckBox* m_autoStart = nullptr;
};
