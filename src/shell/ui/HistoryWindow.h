#pragma once

#include <QUuid>
#include <QWidget>

class BarChartView;
class Clock;
class DataStore;
class HeatMapView;
class QLabel;
class QTabWidget;
class QTimer;
class QVBoxLayout;

// Looking back: a Habits tab with each habit's year, streaks and completion rates,
// and a Focus tab with sessions per day and month, focus time per week, the best
// day and the average session. Built the first time it is asked for; reads the
// store again whenever it is shown and while records change under it.
class HistoryWindow final : public QWidget
{
    Q_OBJECT

public:
    enum class Tab { Habits, Focus };

    HistoryWindow(DataStore& store, const Clock& clock, QWidget* parent = nullptr);

    void showTab(Tab tab);
    // Reads the store again for the tab shown now, and for the other when it is shown.
    void reload();

    // The heat map of the habit with that name (the first of equals), or null.
    HeatMapView* heatMap(const QString& habitName) const;
    BarChartView* sessionsPerDay() const { return m_perDay; }
    BarChartView* sessionsPerMonth() const { return m_perMonth; }
    BarChartView* focusPerWeek() const { return m_perWeek; }

protected:
    void showEvent(QShowEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    QWidget* buildFocusTab();
    void refreshShownTab();
    void reloadHabits(QDate today);
    void reloadFocus(QDate today);

    DataStore& m_store;
    const Clock& m_clock;
    QTabWidget* m_tabs = nullptr;
    QWidget* m_habitsColumn = nullptr;
    QVBoxLayout* m_habitsLayout = nullptr;
    // The Habits tab's chart for each habit, in order; updated in place while the
    // habits stay the same, so the keyboard and assistive technology keep their place.
    struct HabitSection
    {
        QUuid id;
        HeatMapView* map;
    };
    QList<HabitSection> m_sections;
    QLabel* m_thisWeek = nullptr;
    QLabel* m_bestDay = nullptr;
    QLabel* m_average = nullptr;
    BarChartView* m_perDay = nullptr;
    BarChartView* m_perMonth = nullptr;
    BarChartView* m_perWeek = nullptr;
    QTimer* m_refresh = nullptr;
    bool m_habitsStale = true;
    bool m_focusStale = true;
};
