#pragma once

#include <QWidget>

// A widget's full view (controls included) as an ordinary window, opened from the
// hub: on a desktop without a tray it is the only place the timer can be started or
// a task added. Closing it deletes it; the placements are untouched.
class WidgetWindow final : public QWidget
{
    Q_OBJECT

public:
    WidgetWindow(const QString& widgetId, QWidget* view, QWidget* parent = nullptr);

    QString widgetId() const { return m_widgetId; }
    // Shows the window, or raises it when it is shown already.
    void bringForward();
    // "Pomodoro — Tidewell": not the popup's or the panel's bare name.
    static QString titleFor(const QString& widgetId);

private:
    QString m_widgetId;
};
