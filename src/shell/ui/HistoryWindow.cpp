#include "HistoryWindow.h"

#include "BarChartView.h"
#include "Clock.h"
#include "DataStore.h"
#include "HeatMapView.h"
#include "HistoryReader.h"
#include "HistoryStats.h"
#include "Theme.h"

#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QScrollArea>
#include <QTabWidget>
#include <QTimer>
#include <QVBoxLayout>

namespace {
const QLocale english(QLocale::English);

QString longDate(QDate date)
{
    return english.toString(date, QStringLiteral("d MMMM yyyy"));
}

QString sessions(qint64 n)
{
    return n == 1 ? QStringLiteral("1 session") : QStringLiteral("%1 sessions").arg(n);
}

QString days(int n)
{
    return n == 1 ? QStringLiteral("1 day") : QStringLiteral("%1 days").arg(n);
}

QString duration(qint64 seconds)
{
    const qint64 minutes = seconds / 60;
    if (minutes < 60)
        return QStringLiteral("%1 min").arg(minutes);
    return QStringLiteral("%1 h %2 min").arg(minutes / 60).arg(minutes % 60, 2, 10, QChar(u'0'));
}

QString percent(double share)
{
    return QStringLiteral("%1%").arg(qRound(share * 100));
}

QLabel* heading(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setFont(Theme::font(Theme::Font::Headline));
    return label;
}

QLabel* line(QWidget* parent, const QString& objectName)
{
    auto* label = new QLabel(parent);
    label->setObjectName(objectName);
    label->setTextFormat(Qt::PlainText);
    return label;
}

// Keeps a label's accessible name in step with its text.
void say(QLabel* label, const QString& text)
{
    label->setText(text);
    label->setAccessibleName(text);
}
} // namespace

HistoryWindow::HistoryWindow(DataStore& store, const Clock& clock, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_store(store)
    , m_clock(clock)
{
    CellChart::installAccessibility();
    setObjectName(QStringLiteral("historyWindow"));
    setWindowTitle(QStringLiteral("History"));
    setAccessibleName(QStringLiteral("History"));
    resize(800, 640);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);
    m_tabs = new QTabWidget(this);
    m_tabs->setObjectName(QStringLiteral("historyTabs"));
    m_tabs->setAccessibleName(QStringLiteral("History"));
    layout->addWidget(m_tabs);

    auto* scroll = new QScrollArea(m_tabs);
    scroll->setObjectName(QStringLiteral("habitsHistory"));
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    m_habitsColumn = new QWidget(scroll);
    m_habitsLayout = new QVBoxLayout(m_habitsColumn);
    m_habitsLayout->setContentsMargins(16, 16, 16, 16);
    m_habitsLayout->setSpacing(6);
    scroll->setWidget(m_habitsColumn);
    m_tabs->addTab(scroll, QStringLiteral("Habits"));
    m_tabs->addTab(buildFocusTab(), QStringLiteral("Focus"));
    connect(m_tabs, &QTabWidget::currentChanged, this, &HistoryWindow::refreshShownTab);

    // Records saved while the window is open show within a moment, once per burst.
    m_refresh = new QTimer(this);
    m_refresh->setSingleShot(true);
    m_refresh->setInterval(300);
    connect(m_refresh, &QTimer::timeout, this, &HistoryWindow::reload);
    connect(&m_store.mainContext(), &ModelContext::saved, this, [this] {
        if (isVisible())
            m_refresh->start();
    });
}

QWidget* HistoryWindow::buildFocusTab()
{
    auto* scroll = new QScrollArea(m_tabs);
    scroll->setObjectName(QStringLiteral("focusHistory"));
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* page = new QWidget(scroll);
    auto* column = new QVBoxLayout(page);
    column->setContentsMargins(16, 16, 16, 16);
    column->setSpacing(6);
    m_thisWeek = line(page, QStringLiteral("focusThisWeek"));
    m_bestDay = line(page, QStringLiteral("focusBestDay"));
    m_average = line(page, QStringLiteral("focusAverage"));
    column->addWidget(m_thisWeek);
    column->addWidget(m_bestDay);
    column->addWidget(m_average);

    const auto chart = [&](const QString& title, const QString& objectName) {
        column->addSpacing(12);
        column->addWidget(heading(title, page));
        auto* view = new BarChartView(page);
        view->setObjectName(objectName);
        view->setAccessibleName(title);
        column->addWidget(view);
        return view;
    };
    m_perDay =
        chart(QStringLiteral("Sessions per day, last 4 weeks"), QStringLiteral("sessionsPerDay"));
    m_perMonth = chart(QStringLiteral("Sessions per month, last 12 months"),
                       QStringLiteral("sessionsPerMonth"));
    m_perWeek =
        chart(QStringLiteral("Focus time per week, last 12 weeks"), QStringLiteral("focusPerWeek"));
    column->addStretch();
    scroll->setWidget(page);
    return scroll;
}

void HistoryWindow::showTab(Tab tab)
{
    m_tabs->setCurrentIndex(tab == Tab::Habits ? 0 : 1);
}

void HistoryWindow::showEvent(QShowEvent* event)
{
    reload();
    QWidget::showEvent(event);
}

void HistoryWindow::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape)
        close();
    else
        QWidget::keyPressEvent(event);
}

void HistoryWindow::reload()
{
    m_habitsStale = m_focusStale = true;
    refreshShownTab();
}

void HistoryWindow::refreshShownTab()
{
    // Each tab reads the store when it is shown, not before: the Focus tab costs
    // nothing to someone who only looks at habits.
    const QDate today = m_clock.now().toLocalTime().date();
    if (m_tabs->currentIndex() == 0 && m_habitsStale) {
        m_habitsStale = false;
        reloadHabits(today);
    } else if (m_tabs->currentIndex() == 1 && m_focusStale) {
        m_focusStale = false;
        reloadFocus(today);
    }
}

HeatMapView* HistoryWindow::heatMap(const QString& habitName) const
{
    for (HeatMapView* map : m_habitsColumn->findChildren<HeatMapView*>()) {
        if (map->property("habitName").toString() == habitName)
            return map;
    }
    return nullptr;
}

void HistoryWindow::reloadHabits(QDate today)
{
    const QList<HistoryReader::HabitDays> habits = HistoryReader::habits(m_store, today);
    bool same = habits.size() == m_sections.size() && !habits.isEmpty();
    for (qsizetype i = 0; same && i < habits.size(); ++i)
        same = habits[i].id == m_sections[i].id;
    if (!same) {
        m_sections.clear();
        while (QLayoutItem* item = m_habitsLayout->takeAt(0)) {
            delete item->widget();
            delete item;
        }
        if (habits.isEmpty()) {
            auto* none = line(m_habitsColumn, QStringLiteral("noHabits"));
            say(none, QStringLiteral("No habits yet. Add one in the Habits widget, and its days "
                                     "show here."));
            m_habitsLayout->addWidget(none);
        }
        for (const HistoryReader::HabitDays& habit : habits) {
            HabitSection section{habit.id, new HeatMapView(m_habitsColumn)};
            m_habitsLayout->addWidget(section.map);
            m_habitsLayout->addSpacing(18);
            m_sections.append(section);
        }
        m_habitsLayout->addStretch();
    }
    for (qsizetype i = 0; i < habits.size(); ++i) {
        const HistoryReader::HabitDays& habit = habits[i];
        const HabitSection& section = m_sections[i];
        const QStringList figures{
            QStringLiteral("Current streak: %1 · Best streak: %2")
                .arg(days(HistoryStats::currentStreak(habit.days, today)),
                     days(HistoryStats::bestStreak(habit.days))),
            QStringLiteral("Target reached: %1 of the last 7 days · %2 of 30 · %3 of 365")
                .arg(percent(HistoryStats::completionRate(habit.days, today, 7, habit.since)),
                     percent(HistoryStats::completionRate(habit.days, today, 30, habit.since)),
                     percent(HistoryStats::completionRate(habit.days, today, 365, habit.since)))};
        section.map->setProperty("habitName", habit.name);
        section.map->setHabit(habit, today, figures);
    }
}

void HistoryWindow::reloadFocus(QDate today)
{
    const HistoryReader::Focus focus = HistoryReader::focus(m_store);
    const HistoryStats::FocusDays& byDay = focus.days;

    const QList<qint64> weeks = HistoryStats::focusSecondsPerWeek(byDay, today, 12);
    say(m_thisWeek, u"This week: " + duration(weeks.last()) + u" of focus");
    const QDate best = HistoryStats::bestDay(byDay);
    say(m_bestDay, best.isValid() ? u"Best day: " + longDate(best) + u" (" +
                                        sessions(byDay.value(best).sessions) + u')'
                                  : QStringLiteral("Best day: none yet"));
    const qint64 average = focus.averageSeconds;
    say(m_average, average > 0 ? u"Average session: " + duration(average)
                               : QStringLiteral("Average session: none yet"));

    QList<BarChartView::Bar> perDay;
    const QList<int> daily = HistoryStats::sessionsPerDay(byDay, today, 28);
    for (int i = 0; i < daily.size(); ++i) {
        const QDate day = today.addDays(i - daily.size() + 1);
        perDay.append({daily[i],
                       day.dayOfWeek() == 1 ? english.toString(day, u"d MMM") : QString(),
                       longDate(day) + u": " + sessions(daily[i]),
                       {}});
    }
    m_perDay->setBars(perDay);

    QList<BarChartView::Bar> perMonth;
    const QList<int> monthly = HistoryStats::sessionsPerMonth(byDay, today, 12);
    for (int i = 0; i < monthly.size(); ++i) {
        const QDate month = QDate(today.year(), today.month(), 1).addMonths(i - 11);
        perMonth.append({monthly[i],
                         english.monthName(month.month(), QLocale::ShortFormat),
                         english.toString(month, u"MMMM yyyy") + u": " + sessions(monthly[i]),
                         {}});
    }
    m_perMonth->setBars(perMonth);

    QList<BarChartView::Bar> perWeek;
    const QDate thisMonday = today.addDays(1 - today.dayOfWeek());
    for (int i = 0; i < weeks.size(); ++i) {
        const QDate monday = thisMonday.addDays(7 * (i - weeks.size() + 1));
        perWeek.append({weeks[i] / 60, i % 2 == 0 ? english.toString(monday, u"d MMM") : QString(),
                        u"Week of " + longDate(monday) + u": " + duration(weeks[i]),
                        weeks[i] >= 3600 ? QStringLiteral("%1h%2")
                                               .arg(weeks[i] / 3600)
                                               .arg(weeks[i] / 60 % 60, 2, 10, QChar(u'0'))
                                         : QStringLiteral("%1m").arg(weeks[i] / 60)});
    }
    m_perWeek->setBars(perWeek);
}
