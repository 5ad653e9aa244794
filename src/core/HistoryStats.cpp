#include "HistoryStats.h"

namespace {
bool reachedOn(const HistoryStats::Days& days, QDate date)
{
    const auto it = days.constFind(date);
    return it != days.cend() && it->reached();
}

QDate monday(QDate date)
{
    return date.addDays(1 - date.dayOfWeek());
}
} // namespace

int HistoryStats::currentStreak(const Days& days, QDate today)
{
    QDate day = reachedOn(days, today) ? today : today.addDays(-1);
    int streak = 0;
    while (reachedOn(days, day)) {
        ++streak;
        day = day.addDays(-1);
    }
    return streak;
}

int HistoryStats::bestStreak(const Days& days)
{
    int best = 0, run = 0;
    QDate previous;
    for (auto it = days.cbegin(); it != days.cend(); ++it) {
        if (!it->reached()) {
            run = 0;
            continue;
        }
        run = (run > 0 && previous.addDays(1) == it.key()) ? run + 1 : 1;
        previous = it.key();
        best = std::max(best, run);
    }
    return best;
}

double HistoryStats::completionRate(const Days& days, QDate today, int span, QDate since)
{
    QDate first = today.addDays(1 - span);
    if (since.isValid() && since > first)
        first = since;
    int counted = 0, reached = 0;
    for (QDate day = first; day <= today; day = day.addDays(1)) {
        const bool done = reachedOn(days, day);
        if (day == today && !done)
            continue;
        ++counted;
        reached += done ? 1 : 0;
    }
    return counted == 0 ? 0.0 : double(reached) / counted;
}

QList<int> HistoryStats::sessionsPerDay(const FocusDays& days, QDate today, int count)
{
    QList<int> out;
    for (QDate day = today.addDays(1 - count); day <= today; day = day.addDays(1))
        out.append(days.value(day).sessions);
    return out;
}

QList<int> HistoryStats::sessionsPerMonth(const FocusDays& days, QDate today, int count)
{
    const QDate firstMonth = QDate(today.year(), today.month(), 1).addMonths(1 - count);
    QList<int> out(count, 0);
    for (auto it = days.lowerBound(firstMonth); it != days.cend() && it.key() <= today; ++it) {
        const int index =
            (it.key().year() - firstMonth.year()) * 12 + it.key().month() - firstMonth.month();
        out[index] += it->sessions;
    }
    return out;
}

QList<qint64> HistoryStats::focusSecondsPerWeek(const FocusDays& days, QDate today, int count)
{
    const QDate firstWeek = monday(today).addDays(-7 * (count - 1));
    QList<qint64> out(count, 0);
    for (auto it = days.lowerBound(firstWeek); it != days.cend() && it.key() <= today; ++it)
        out[firstWeek.daysTo(it.key()) / 7] += it->focusSeconds;
    return out;
}

QDate HistoryStats::bestDay(const FocusDays& days)
{
    QDate best;
    int most = 0;
    for (auto it = days.cbegin(); it != days.cend(); ++it) {
        if (it->sessions > 0 && it->sessions >= most) {
            most = it->sessions;
            best = it.key();
        }
    }
    return best;
}
