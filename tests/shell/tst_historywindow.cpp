#include "BarChartView.h"
#include "DataStore.h"
#include "FocusSession.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "HabitsService.h"
#include "HeatMapView.h"
#include "HistoryWindow.h"
#include "ImportDialog.h"
#include "ManualClock.h"
#include "TestServices.h"

#include <QAccessible>
#include <QLabel>
#include <QRadioButton>
#include <QTabWidget>
#include <QTest>

#include <numeric>

class TestHistoryWindow final : public QObject
{
    Q_OBJECT

    ManualClock m_time{QDateTime(QDate(2026, 3, 20), QTime(15, 0))};
    std::unique_ptr<AppServices> m_services;

    ModelContext& context() { return m_services->store().mainContext(); }

    void session(const QDateTime& start, qint64 seconds, const QString& outcome,
                 const QString& phase = FocusSession::Focus)
    {
        context().insert(
            new FocusSession(phase, start, start.addSecs(seconds), 1500, seconds, outcome));
    }

    static QString labelText(QWidget* window, const char* name)
    {
        return window->findChild<QLabel*>(QLatin1String(name))->text();
    }

private slots:
    void init()
    {
        AppServices::Parts parts = testParts();
        parts.clock = m_time.source();
        m_services = std::make_unique<AppServices>(std::move(parts));
    }

    void cleanup()
    {
        m_services->auth().load();
        settle(*m_services);
        m_services.reset();
    }

    void heatMapCellsSpeakTheirDay()
    {
        auto* water = new Habit(QStringLiteral("💧"), QStringLiteral("Water"),
                                QStringLiteral("#0A84FF"), 8, 0, m_time.now.addDays(-30));
        context().insert(water);
        context().insert(new HabitHistory(QStringLiteral("2026-03-12"), 6, 8, water));
        for (int d = 13; d <= 19; ++d) // a week reached, up to yesterday
            context().insert(new HabitHistory(QStringLiteral("2026-03-%1").arg(d), 8, 8, water));
        QVERIFY(context().save());

        HistoryWindow window(m_services->store(), m_services->clock());
        window.show();
        HeatMapView* map = window.heatMap(QStringLiteral("Water"));
        QVERIFY(map);
        QAccessibleInterface* chart = QAccessible::queryAccessibleInterface(map);
        QCOMPARE(chart->text(QAccessible::Name), QStringLiteral("Water, last 12 months"));
        QCOMPARE(chart->childCount(), map->cellCount());
        const auto spoken = [&](QDate date) {
            QAccessibleInterface* cell = chart->child(map->cellOf(date));
            return cell ? cell->text(QAccessible::Description) : QString();
        };
        QCOMPARE(spoken(QDate(2026, 3, 12)), QStringLiteral("Water, 12 March 2026: 6 of 8"));
        QCOMPARE(spoken(QDate(2026, 3, 19)), QStringLiteral("Water, 19 March 2026: 8 of 8"));
        QCOMPARE(spoken(QDate(2026, 3, 20)), QStringLiteral("Water, 20 March 2026: 0 of 8"));
        QCOMPARE(spoken(QDate(2026, 1, 2)),
                 QStringLiteral("Water, 2 January 2026: not tracked yet"));
        // The last cell is today (a Friday: the grid ends there), the first a Monday.
        QCOMPARE(map->dateOf(map->cellCount() - 1), QDate(2026, 3, 20));
        QCOMPARE(map->firstDay().dayOfWeek(), 1);
        QCOMPARE(chart->childAt(map->mapToGlobal(map->cellRect(3).center()).x(),
                                map->mapToGlobal(map->cellRect(3).center()).y()),
                 chart->child(3));

        // Keys: focus starts on today; left is a week earlier, up a day earlier.
        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        map->setFocus();
        QTRY_VERIFY(map->hasFocus());
        QCOMPARE(map->dateOf(map->currentCell()), QDate(2026, 3, 20));
        QTest::keyClick(map, Qt::Key_Left);
        QTest::keyClick(map, Qt::Key_Up);
        QCOMPARE(map->dateOf(map->currentCell()), QDate(2026, 3, 12));
        QVERIFY(chart->child(map->currentCell())->state().focused);
        QTest::keyClick(map, Qt::Key_Home);
        QCOMPARE(map->currentCell(), 0);

        // Streaks: seven days reached up to yesterday (today still open); best the same.
        QCOMPARE(map->figures(),
                 (QStringList{"Current streak: 7 days · Best streak: 7 days",
                              "Target reached: 100% of the last 7 days · 24% of 30 · 23% of 365"}));
        QCOMPARE(chart->text(QAccessible::Description), map->figures().join(u". "));

        // A count while the window is open shows once it is saved.
        m_services->habits().increment(water, context());
        QTRY_COMPARE(spoken(QDate(2026, 3, 20)), QStringLiteral("Water, 20 March 2026: 1 of 8"));
    }

    void focusTabShowsSessionsPerDayMonthAndWeek()
    {
        HistoryWindow window(m_services->store(), m_services->clock());
        window.showTab(HistoryWindow::Tab::Focus);
        window.show();
        QCOMPARE(window.sessionsPerDay()->values(), QList<qint64>(28, 0));
        QCOMPARE(labelText(&window, "focusBestDay"), QStringLiteral("Best day: none yet"));

        const QDateTime today = m_time.now.addSecs(-4 * 3600);
        session(today, 1500, FocusSession::Completed);
        session(today.addSecs(1800), 1500, FocusSession::Completed);
        session(today.addSecs(3600), 400, FocusSession::Reset); // time, not a session
        session(today.addSecs(4000), 300, FocusSession::Completed, FocusSession::ShortBreak);
        session(today.addDays(-1), 1200, FocusSession::Completed);
        for (int i = 0; i < 3; ++i)
            session(QDateTime(QDate(2026, 1, 5 + i), QTime(9, 0)), 1500, FocusSession::Completed);
        QVERIFY(context().save());
        QTRY_COMPARE(window.sessionsPerDay()->values().last(), 2);

        const QList<qint64> daily = window.sessionsPerDay()->values();
        QCOMPARE(daily.size(), 28);
        QCOMPARE(daily[26], 1);
        QCOMPARE(std::accumulate(daily.begin(), daily.end(), qint64(0)), 3);
        QCOMPARE(window.sessionsPerMonth()->values(),
                 (QList<qint64>{0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 3}));
        QCOMPARE(window.sessionsPerDay()->cellText(27),
                 QStringLiteral("20 March 2026: 2 sessions"));
        QCOMPARE(window.sessionsPerMonth()->cellText(9),
                 QStringLiteral("January 2026: 3 sessions"));
        // This week (from Monday the 16th): 25 + 25 + 6 min 40 s today, 20 min yesterday.
        QCOMPARE(window.focusPerWeek()->values().last(), 76);
        QCOMPARE(labelText(&window, "focusThisWeek"),
                 QStringLiteral("This week: 1 h 16 min of focus"));
        QCOMPARE(labelText(&window, "focusBestDay"),
                 QStringLiteral("Best day: 20 March 2026 (2 sessions)"));
        QCOMPARE(labelText(&window, "focusAverage"), QStringLiteral("Average session: 24 min"));
        QAccessibleInterface* bars = QAccessible::queryAccessibleInterface(window.sessionsPerDay());
        QCOMPARE(bars->child(27)->text(QAccessible::Name),
                 QStringLiteral("20 March 2026: 2 sessions"));
    }

    void importDialogShowsWhatEachChoiceChanges()
    {
        context().insert(new Habit(QString(), QStringLiteral("Mine"), QString(), 1, 0, m_time.now));
        QVERIFY(context().save());
        const QByteArray json = QByteArrayLiteral(
            R"({"format": "tidewell-export", "version": 1, "timer": [], "taskLists": [],
                "tasks": [], "habitHistory": [], "placements": [], "focusSessions": [],
                "habits": [{"id": "8f6c1f0e-3b2a-4d7e-9c1a-5e2f3a4b5c6d", "icon": null,
                            "name": "Theirs", "colorHex": null, "maxValue": 3,
                            "currentValue": 0, "firstTrackerDate": null, "order": 0}]})");
        QString error;
        const auto doc = ExportDocument::read(json, &error);
        QVERIFY2(doc, qPrintable(error));
        ImportDialog dialog(QStringLiteral("backup.json"),
                            doc->plan(context(), ExportDocument::Mode::Replace),
                            doc->plan(context(), ExportDocument::Mode::Merge));
        dialog.show();
        auto* changes = dialog.findChild<QLabel*>(QStringLiteral("importChanges"));
        // Merge is chosen first: it loses nothing.
        QCOMPARE(dialog.mode(), ExportDocument::Mode::Merge);
        QCOMPARE(changes->text(),
                 QStringLiteral("What changes:\nHabits: 1 added, 0 changed, 0 removed"));
        QTest::mouseClick(dialog.findChild<QRadioButton*>(QStringLiteral("replaceAllData")),
                          Qt::LeftButton);
        QCOMPARE(dialog.mode(), ExportDocument::Mode::Replace);
        QCOMPARE(changes->text(),
                 QStringLiteral("What changes:\nHabits: 1 added, 0 changed, 1 removed"));
        QCOMPARE(changes->accessibleName(), changes->text());
        // Nothing was written by looking.
        QCOMPARE(context().count<Habit>(), 1);
    }
};

QTEST_MAIN(TestHistoryWindow)
#include "tst_historywindow.moc"
