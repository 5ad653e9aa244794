#pragma once

#include <QHash>
#include <QWidget>

class PlacementService;
class QLabel;
class Switch;
class WindowManager;

// The hub's "Widgets" block: per widget, a switch for its tray item and one for
// its floating panel, kept in step with the stored placements, and a button that
// opens the widget in a window (all there is on a desktop without a tray).
class WidgetTogglesView final : public QWidget
{
    Q_OBJECT

public:
    WidgetTogglesView(PlacementService& placements, WindowManager& windows,
                      QWidget* parent = nullptr);

    Switch* statusBarSwitch(const QString& widgetId) const
    {
        return m_statusSwitches.value(widgetId);
    }
    Switch* floatingSwitch(const QString& widgetId) const
    {
        return m_floatingSwitches.value(widgetId);
    }

signals:
    // The row's "Open" button: the widget's full view in a window of its own.
    void openRequested(const QString& widgetId);

protected:
    void showEvent(QShowEvent* event) override;

private:
    void refresh();
    void toggle(const QString& widgetId, bool statusBar, bool on);

    PlacementService& m_placements;
    WindowManager& m_windows;
    QHash<QString, Switch*> m_statusSwitches;
    QHash<QString, Switch*> m_floatingSwitches;
    QLabel* m_noTrayNote = nullptr;
};
