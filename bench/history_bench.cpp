// Opening the history window on years of data against opening it on none; run
// by bench/history on a throwaway X display.
//
// Usage: history_bench [RUNS]   (QT_QPA_PLATFORM=offscreen when there is no display)
//
// Builds two stores in a temporary folder: an empty one, and one with 20 habits
// with a record every day for ten years and eight focus sessions a day for ten
// years. After one warm-up opening (as the hub window has loaded fonts and style
// by the time anyone asks for History), the window is opened RUNS times (default
// 7) on each, alternately: built, shown, exposed by the display and painted in
// full. Prints the median milliseconds for each and, last, open_ratio (full /
// empty); the goal is open_ratio <= 3 and full_ms under 150 on a release build.

#include "BenchStore.h"
#include "Clock.h"
#include "HistoryWindow.h"
#include "StoreConnection.h"
#include "StoreSchema.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QUuid>
#include <QWindow>

#include <algorithm>
#include <cstdio>

namespace {
constexpr int Habits = 20;
constexpr int Days = 3650;
constexpr int SessionsPerDay = 8;

QString newId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

// Years of records, written in one transaction straight to the tables: the
// bench measures reading them, not writing.
void fill(DataStore& store, const QDateTime& now)
{
    StoreConnection& db = store.connection();
    db.begin(nullptr);
    const QString habit = QStringLiteral(
        "INSERT INTO habit (id, icon, name, colorHex, maxValue, currentValue, firstTrackerDate, "
        "\"order\") VALUES (?, '💧', ?, '#0A84FF', 8, 0, ?, ?)");
    const QString day = QStringLiteral("INSERT INTO habit_history (id, date, value, maxValue, "
                                       "completed, habitId) VALUES (?, ?, ?, 8, ?, ?)");
    const QString session = QStringLiteral(
        "INSERT INTO focus_session (id, phase, startedAt, day, endedAt, plannedSeconds, "
        "elapsedSeconds, outcome) VALUES (?, 'focus', ?, ?, ?, 1500, 1500, 'completed')");
    const QDate today = now.date();
    for (int h = 0; h < Habits; ++h) {
        const QString id = newId();
        db.exec(habit, {id, QStringLiteral("Habit %1").arg(h + 1),
                        double(now.addDays(-Days).toSecsSinceEpoch()), h});
        for (int d = 1; d <= Days; ++d) {
            const int value = (d * 7 + h * 3) % 10;
            db.exec(day, {newId(), today.addDays(-d).toString(Qt::ISODate), value,
                          value >= 8 ? 1 : 0, id});
        }
    }
    for (int d = 1; d <= Days; ++d) {
        const QDateTime morning = now.addDays(-d);
        for (int s = 0; s < SessionsPerDay; ++s) {
            const double start = double(morning.addSecs(s * 1800).toSecsSinceEpoch());
            db.exec(session, {newId(), start, morning.date().toString(Qt::ISODate), start + 1500});
        }
    }
    db.commit(nullptr);
}

double openOnce(DataStore& store, const Clock& clock)
{
    QElapsedTimer timer;
    timer.start();
    auto* window = new HistoryWindow(store, clock);
    window->show();
    // Until the display has mapped it and it has painted itself once.
    while (!window->windowHandle() || !window->windowHandle()->isExposed())
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 5);
    window->repaint();
    QCoreApplication::processEvents();
    const double ms = double(timer.nsecsElapsed()) / 1e6;
    delete window;
    QCoreApplication::processEvents();
    return ms;
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}
} // namespace

int main(int argc, char* argv[])
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 7;
    const Clock clock;
    QTemporaryDir folder;
    auto empty = openStoreOrExit(folder.filePath(QStringLiteral("empty.sqlite")));
    auto full = openStoreOrExit(folder.filePath(QStringLiteral("full.sqlite")));
    fill(*full, clock.now());

    openOnce(*empty, clock); // the first window of a process pays for fonts and style
    QList<double> emptyMs, fullMs;
    for (int i = 0; i < runs; ++i) {
        emptyMs.append(openOnce(*empty, clock));
        fullMs.append(openOnce(*full, clock));
    }
    const double e = median(emptyMs), f = median(fullMs);
    std::printf("habits %d, days of history %d, focus sessions %d\n", Habits, Habits * Days,
                Days * SessionsPerDay);
    std::printf("empty_ms %.1f\nfull_ms %.1f\nopen_ratio %.2f\n", e, f, f / e);
    return 0;
}
