#include "SyncMerge.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QDate monday(2026, 11, 23);
const QDate tuesday = monday.addDays(1);
const QDateTime early(monday, QTime(9, 0));
const QDateTime late(monday, QTime(10, 0));

// Both sides on the base's day; the local change is the later one unless said.
SyncMerge::Sides sameDay(bool localLater = true)
{
    return {localLater ? late : early, localLater ? early : late, monday, monday, monday};
}

WireHabit habit(const QString& name, qint64 count, const QString& color = u"#FF0000"_s)
{
    return {u"💧"_s, name, color, 8, count, u"2026-01-01T00:00:00Z"_s};
}

QStringList names(const QList<WireHabit>& habits)
{
    QStringList out;
    for (const auto& h : habits)
        out.append(u"%1=%2"_s.arg(h.name).arg(h.currentValue));
    return out;
}

WireTask task(const QString& text, bool checked = false)
{
    return {text, std::nullopt, checked, {}};
}

WireTaskList list(const QString& name, QList<WireTask> tasks,
                  std::optional<qint64> focus = std::nullopt)
{
    return {name, focus, std::move(tasks)};
}

QString shown(const QList<WireTaskList>& lists)
{
    QStringList out;
    for (const auto& l : lists) {
        QStringList tasks;
        for (qsizetype i = 0; i < l.tasks.size(); ++i)
            tasks.append((l.highlightedTask == i ? u"*"_s : QString()) + l.tasks[i].header +
                         (l.tasks[i].checked ? u"✓"_s : QString()));
        out.append(l.name + u":"_s + tasks.join(u','));
    }
    return out.join(u" | "_s);
}

} // namespace

class TestSyncMerge final : public QObject
{
    Q_OBJECT

private slots:
    // No raise is lost, and a day's reset keeps only what was counted after it.
    void countsAcrossDays()
    {
        const auto on = [](QDate base, QDate local, QDate server) {
            return SyncMerge::Sides{late, early, base, local, server};
        };
        // Both raise 2 on 5.
        QCOMPARE(SyncMerge::count(2, 3, 4, sameDay()), 5);
        // One side lowers, the other raises: both changes stand.
        QCOMPARE(SyncMerge::count(5, 4, 7, sameDay()), 6);
        QCOMPARE(SyncMerge::count(1, 0, 0, sameDay()), 0);
        // This computer passed midnight and counted 2; the server's raise was
        // Monday's and belongs to Monday's history.
        QCOMPARE(SyncMerge::count(3, 2, 5, on(monday, tuesday, monday)), 2);
        // Both passed midnight: both counted from zero.
        QCOMPARE(SyncMerge::count(3, 2, 1, on(monday, tuesday, tuesday)), 3);
        // The server passed midnight, this computer is still on the base's day.
        QCOMPARE(SyncMerge::count(3, 9, 1, on(monday, monday, tuesday)), 1);
        // A base from before either side's day counts nothing.
        QCOMPARE(SyncMerge::count(7, 2, 1, on(monday, tuesday, tuesday)), 3);
    }

    // Habits are matched by name; a field changed on one side takes that side,
    // on both sides the later change; renames keep the record.
    void habitsMatchedByName()
    {
        const QList<WireHabit> base{habit(u"Water"_s, 1), habit(u"Coffee"_s, 0)};

        // Both count water; the server recolours coffee and adds a habit.
        auto merged = SyncMerge::habits(
            base, {habit(u"Water"_s, 2), habit(u"Coffee"_s, 0)},
            {habit(u"Water"_s, 3), habit(u"Coffee"_s, 0, u"#00FF00"_s), habit(u"Read"_s, 1)},
            sameDay());
        QCOMPARE(names(merged), (QStringList{u"Water=4"_s, u"Coffee=0"_s, u"Read=1"_s}));
        QCOMPARE(merged[1].color, u"#00FF00"_s);

        // Both recolour water: the later change wins either way round.
        const QList<WireHabit> blue{habit(u"Water"_s, 1, u"#0000FF"_s), base[1]};
        const QList<WireHabit> green{habit(u"Water"_s, 1, u"#00FF00"_s), base[1]};
        QCOMPARE(SyncMerge::habits(base, blue, green, sameDay(true))[0].color, u"#0000FF"_s);
        QCOMPARE(SyncMerge::habits(base, blue, green, sameDay(false))[0].color, u"#00FF00"_s);

        // Renamed here while the server counted: one habit, new name, both counts.
        SyncMerge::Renames renames;
        renames.habits.insert(u"H2O"_s, u"Water"_s);
        merged = SyncMerge::habits(base, {habit(u"H2O"_s, 2), base[1]},
                                   {habit(u"Water"_s, 2), base[1]}, sameDay(), renames);
        QCOMPARE(names(merged), (QStringList{u"H2O=3"_s, u"Coffee=0"_s}));

        // Renamed on the server while this computer counted.
        merged = SyncMerge::habits(base, {habit(u"Water"_s, 3), base[1]},
                                   {habit(u"Aqua"_s, 1), base[1]}, sameDay());
        QCOMPARE(names(merged), (QStringList{u"Aqua=3"_s, u"Coffee=0"_s}));

        // One side reorders, the other adds at the end: the new order holds, the
        // new habit follows the habit it followed.
        merged = SyncMerge::habits(base, {base[1], base[0]},
                                   {base[0], base[1], habit(u"Read"_s, 0)}, sameDay());
        QCOMPARE(names(merged), (QStringList{u"Coffee=0"_s, u"Read=0"_s, u"Water=1"_s}));

        // Added on both sides under one name: one habit holding both counts.
        merged = SyncMerge::habits({}, {habit(u"Tea"_s, 1)}, {habit(u"Tea"_s, 2)}, sameDay());
        QCOMPARE(names(merged), QStringList{u"Tea=3"_s});
    }

    // A deletion wins over an edit made before it; an edit made after it brings
    // the record back.
    void deleteAgainstEdit()
    {
        const QList<WireHabit> base{habit(u"Water"_s, 1), habit(u"Coffee"_s, 0)};
        const QList<WireHabit> deleted{base[1]};
        const QList<WireHabit> counted{habit(u"Water"_s, 2), base[1]};

        // Deleted here, later than the server's count.
        QCOMPARE(names(SyncMerge::habits(base, deleted, counted, sameDay(true))),
                 QStringList{u"Coffee=0"_s});
        // Deleted here, earlier than the server's count: it comes back.
        QCOMPARE(names(SyncMerge::habits(base, deleted, counted, sameDay(false))),
                 (QStringList{u"Water=2"_s, u"Coffee=0"_s}));
        // The mirror image, deleted on the server.
        QCOMPARE(names(SyncMerge::habits(base, counted, deleted, sameDay(false))),
                 QStringList{u"Coffee=0"_s});
        QCOMPARE(names(SyncMerge::habits(base, counted, deleted, sameDay(true))),
                 (QStringList{u"Water=2"_s, u"Coffee=0"_s}));
        // Untouched on the other side: gone, whatever the times.
        QCOMPARE(names(SyncMerge::habits(base, deleted, base, sameDay(false))),
                 QStringList{u"Coffee=0"_s});
        QCOMPARE(names(SyncMerge::habits(base, base, deleted, sameDay(true))),
                 QStringList{u"Coffee=0"_s});
    }

    // Tasks are matched by list name and text; checks, additions, renames and
    // the focus task each follow the side that made them.
    void taskListsMerge()
    {
        const QList<WireTaskList> base{
            list(u"Home"_s, {task(u"Milk"_s), task(u"Bread"_s)}, 0),
            list(u"Work"_s, {task(u"Report"_s)}),
        };

        // Checked here, added on the server.
        auto merged = SyncMerge::taskLists(
            base, {list(u"Home"_s, {task(u"Milk"_s, true), task(u"Bread"_s)}, 0), base[1]},
            {list(u"Home"_s, {task(u"Milk"_s), task(u"Bread"_s), task(u"Eggs"_s)}, 0), base[1]},
            sameDay());
        QCOMPARE(shown(merged), u"Home:*Milk✓,Bread,Eggs | Work:Report"_s);

        // The server moved the focus, this computer renamed the focus task's
        // neighbour: both stand, and the focus stays on its task.
        SyncMerge::Renames renames;
        renames.tasks[u"Home"_s].insert(u"Rye bread"_s, u"Bread"_s);
        merged = SyncMerge::taskLists(
            base, {list(u"Home"_s, {task(u"Milk"_s), task(u"Rye bread"_s)}, 0), base[1]},
            {list(u"Home"_s, {task(u"Milk"_s), task(u"Bread"_s)}, 1), base[1]}, sameDay(), renames);
        QCOMPARE(shown(merged), u"Home:Milk,*Rye bread | Work:Report"_s);

        // A list renamed on the server keeps the task added here; a list the
        // server reordered stays in the server's order.
        merged = SyncMerge::taskLists(
            base, {base[0], list(u"Work"_s, {task(u"Report"_s), task(u"Slides"_s)})},
            {list(u"Office"_s, {task(u"Report"_s)}), base[0]}, sameDay());
        QCOMPARE(shown(merged), u"Office:Report,Slides | Home:*Milk,Bread"_s);

        // The focus task deleted on one side: no focus, rather than another task.
        merged = SyncMerge::taskLists(base, {list(u"Home"_s, {task(u"Bread"_s)}), base[1]}, base,
                                      sameDay());
        QCOMPARE(shown(merged), u"Home:Bread | Work:Report"_s);
    }

    // Timer settings merge key by key; the day's counts add.
    void timerSettings()
    {
        PomodoroState base;
        base.setInteger(u"pomodoroDuration"_s, 25);
        base.setInteger(u"shortBreakDuration"_s, 5);
        base.setInteger(u"pomodoroTotalCount"_s, 2);
        base.setDate(u"firstPomodoroCountDate"_s, QDateTime(monday, QTime(8, 0)));
        PomodoroState local = base;
        local.setInteger(u"pomodoroDuration"_s, 50);
        local.setInteger(u"pomodoroTotalCount"_s, 3);
        PomodoroState server = base;
        server.setInteger(u"shortBreakDuration"_s, 10);
        server.setInteger(u"pomodoroTotalCount"_s, 4);

        auto merged = SyncMerge::pomodoro(base, local, server, sameDay());
        QVERIFY(merged);
        QCOMPARE(merged->integer(u"pomodoroDuration"_s, 0), 50);
        QCOMPARE(merged->integer(u"shortBreakDuration"_s, 0), 10);
        QCOMPARE(merged->integer(u"pomodoroTotalCount"_s, 0), 5);

        // The server started a new day: only its counts are the day's.
        server.setDate(u"firstPomodoroCountDate"_s, QDateTime(tuesday, QTime(8, 0)));
        server.setInteger(u"pomodoroTotalCount"_s, 1);
        merged = SyncMerge::pomodoro(base, local, server, sameDay());
        QCOMPARE(merged->integer(u"pomodoroTotalCount"_s, 0), 1);
        QCOMPARE(merged->date(u"firstPomodoroCountDate"_s)->toLocalTime().date(), tuesday);

        // A side without a timer leaves the other's as it is.
        QCOMPARE(SyncMerge::pomodoro(base, std::nullopt, server, sameDay()), server);
    }
};

QTEST_GUILESS_MAIN(TestSyncMerge)
#include "tst_syncmerge.moc"
