// Measures what the store costs at start-up as history grows: open + habits sorted
// + today's history of every habit, for a store with ten years of history and for
// the same store without it. Prints one figure per line, the best of 5 runs each
// in a fresh store instance, then the ratio history/no-history (goal: <= 1.5).

#include "BenchStore.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "WidgetPlacement.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {
constexpr int habitCount = 20;
constexpr int historyDays = 3650;
constexpr int listCount = 100;
constexpr int tasksPerList = 100;
constexpr int runs = 5;

void build(const QString& path, bool withHistory)
{
    auto store = openStoreOrExit(path);
    ModelContext& ctx = store->mainContext();
    const QDate today = QDate::currentDate();
    for (int h = 0; h < habitCount; ++h) {
        auto* habit = new Habit(QStringLiteral("💧"), QStringLiteral("Habit %1").arg(h),
                                QStringLiteral("#3B82F6"), 8, h);
        ctx.insert(habit);
        if (!withHistory)
            continue;
        for (int d = historyDays; d >= 0; --d) {
            const QString key = DailyResetService::dateString(today.addDays(-d).startOfDay());
            ctx.insert(new HabitHistory(key, d % 9, 8, habit));
        }
    }
    if (withHistory) {
        // The timer in the tray and floating, as bench/startup launches the app with it.
        auto* timer = new WidgetPlacement(QStringLiteral("pomodoro"), true);
        timer->setInStatusBar(true);
        ctx.insert(timer);
    }
    for (int l = 0; l < listCount; ++l) {
        auto* list = new TaskList(QStringLiteral("List %1").arg(l), l);
        ctx.insert(list);
        for (int t = 0; t < tasksPerList; ++t)
            ctx.insert(new TaskItem(QStringLiteral("Task %1").arg(t), t, list));
    }
    QString error;
    if (!ctx.save(&error)) {
        std::fprintf(stderr, "save failed: %s\n", qPrintable(error));
        std::exit(1);
    }
}

// What showing "today" costs: open, habits in order, and each habit's record of today.
double startupMs(const QString& path)
{
    double best = 1e300;
    const QString today = DailyResetService::dateString(QDateTime::currentDateTime());
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        auto store = openStoreOrExit(path);
        ModelContext& ctx = store->mainContext();
        int found = 0;
        for (Habit* habit : ctx.fetch<Habit>(FetchRequest::sortedBy(QStringLiteral("order")))) {
            const QUuid id = habit->id();
            found +=
                ctx.fetch<HabitHistory>(FetchRequest::where(QStringLiteral("date"), today),
                                        [id](const HabitHistory* r) { return r->habitId() == id; })
                    .size();
        }
        best = std::min(best, timer.nsecsElapsed() / 1e6);
        if (found < 0)
            std::abort();
    }
    return best;
}

double saveOneFieldMs(const QString& path)
{
    double best = 1e300;
    auto store = openStoreOrExit(path);
    ModelContext& ctx = store->mainContext();
    Habit* habit = ctx.fetch<Habit>().first();
    for (int i = 0; i < runs; ++i) {
        habit->setCurrentValue(habit->currentValue() + 1);
        QElapsedTimer timer;
        timer.start();
        ctx.save();
        best = std::min(best, timer.nsecsElapsed() / 1e6);
    }
    return best;
}
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    // An optional argument names a folder to build the stores in (kept afterwards).
    QTemporaryDir temp;
    const QDir dir(argc > 1 ? QString::fromLocal8Bit(argv[1]) : temp.path());
    const QString full = dir.filePath(QStringLiteral("history.sqlite"));
    const QString bare = dir.filePath(QStringLiteral("bare.sqlite"));
    QFile::remove(full);
    QFile::remove(bare);
    build(full, true);
    build(bare, false);

    const double withHistory = startupMs(full);
    const double without = startupMs(bare);
    std::printf("open_fetch_today_with_history_ms %.3f\n", withHistory);
    std::printf("open_fetch_today_without_history_ms %.3f\n", without);
    std::printf("save_one_field_ms %.3f\n", saveOneFieldMs(full));
    std::printf("ratio %.3f\n", withHistory / without);
    return 0;
}
