#pragma once

#include <QWidget>

class QLabel;
class QLayout;
class QToolButton;
class PomodoroService;
class PomodoroSettingsSheet;

// The focus timer's face: phase, remaining time, progress towards the long
// break, today's counts and the controls. In view-only form (floating panels)
// only the phase and the time are shown.
class PomodoroWidgetView final : public QWidget
{
    Q_OBJECT

public:
    PomodoroWidgetView(PomodoroService& timer, bool viewOnly, QWidget* parent = nullptr);

    // "25:00" for 1,500,000 ms; minutes are not capped at 59 ("100:00").
    static QString timeText(qint64 remainingMs);
    bool isViewOnly() const { return m_viewOnly; }
    PomodoroSettingsSheet* settingsSheet() const;

protected:
    void showEvent(QShowEvent* event) override;

private:
    QLayout* buildLabels(); // the phase and the time
    QLayout* buildControls();
    QLayout* buildFooter(); // today's count and the settings button
    void followTimer();
    void refresh();
    void rebuildPips();
    void openSettings();

    PomodoroService& m_timer;
    bool m_viewOnly;
    QLabel* m_phase = nullptr;
    QLabel* m_time = nullptr;
    QWidget* m_pips = nullptr;
    QToolButton* m_startPause = nullptr;
    QLabel* m_footer = nullptr;
};
