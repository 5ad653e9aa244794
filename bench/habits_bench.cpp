// How the habits widget opens as history grows: a fresh store instance, then the
// widget built, shown and laid out, for 50 habits with ten years of daily history
// each and for the same 50 habits without any. Prints the median of 7 runs of
// each, then the ratio history/no-history as the last line (goal: <= 1.5).

#include "AppServices.h"
#include "BenchStore.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "HabitsService.h"
#include "HabitsWidgetView.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {
constexpr int habitCount = 50;
constexpr int historyDays = 3650;
constexpr int runs = 7;

void fill(const QString& path, bool withHistory)
{
    auto store = openStoreOrExit(path);
    ModelContext& context = store->mainContext();
    const QDateTime today = QDateTime::currentDateTime();
    for (int h = 0; h < habitCount; ++h) {
        auto* habit = new Habit(QStringLiteral("1F4A7"), QStringLiteral("Habit %1").arg(h),
                                QStringLiteral("#3B82F6"), 8, h);
        context.insert(habit);
        for (int d = 1; withHistory && d <= historyDays; ++d) {
            const QString day = DailyResetService::dateString(today.addDays(-d));
            context.insert(new HabitHistory(day, d % 9, 8, habit));
        }
    }
    if (!context.save()) {
        std::fprintf(stderr, "cannot fill %s\n", qPrintable(path));
        std::exit(1);
    }
}

double medianOpenMs(const QString& path)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        {
            const AppServices services({.store = openStoreOrExit(path)});
            HabitsWidgetView view(services.habits(), services.store().mainContext(), false);
            view.show();
            view.adjustSize();
            QCoreApplication::processEvents();
            times.push_back(double(timer.nsecsElapsed()) / 1e6);
        }
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}
} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QTemporaryDir dir;
    const QString bare = dir.filePath(QStringLiteral("bare.sqlite"));
    const QString full = dir.filePath(QStringLiteral("history.sqlite"));
    fill(bare, false);
    fill(full, true);
    medianOpenMs(full); // warm-up: fonts, icons and the SQLite code pages
    const double without = medianOpenMs(bare);
    const double with = medianOpenMs(full);
    std::printf("habits_widget_no_history_ms %.2f\n", without);
    std::printf("habits_widget_history_ms %.2f\n", with);
    std::printf("ratio %.2f\n", with / without);
    return 0;
}
