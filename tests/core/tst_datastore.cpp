#include "DataStore.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "PomodoroConfig.h"
#include "StoreSchema.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "WidgetPlacement.h"

#include <QDebug>
#include <QFile>
#include <QMetaProperty>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class TestDataStore final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    int m_n = 0;

    QString freshPath() { return m_dir.filePath(QStringLiteral("store%1.sqlite").arg(m_n++)); }

    static std::unique_ptr<DataStore> openOrFail(const QString& path)
    {
        QString error;
        auto store = DataStore::open(path, &error);
        if (!store)
            qFatal("open failed: %s", qPrintable(error));
        return store;
    }

    // Runs `sql` on a second connection to the file, as another process would.
    static void onSecondConnection(const QString& path, const std::function<void(QSqlQuery&)>& sql)
    {
        {
            QSqlDatabase db =
                QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("second"));
            db.setDatabaseName(path);
            QVERIFY(db.open());
            QSqlQuery q(db);
            sql(q);
        }
        QSqlDatabase::removeDatabase(QStringLiteral("second"));
    }

    // Every field of every record, one sorted line each, its type included.
    template <typename... Lists> static QStringList fields(const Lists&... lists)
    {
        QStringList lines;
        const auto add = [&lines](const auto& records) {
            for (const Record* r : records) {
                const QMetaObject* meta = r->metaObject();
                for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i) {
                    QString line;
                    QDebug(&line) << meta->className() << r->key() << meta->property(i).name()
                                  << meta->property(i).read(r);
                    lines << line;
                }
            }
        };
        (add(lists), ...);
        lines.sort();
        return lines;
    }

private slots:
    void roundTripsEveryField()
    {
        const QString path = freshPath();
        const QDateTime when = QDateTime::fromMSecsSinceEpoch(1'709'596'800'456);
        QStringList written;
        {
            auto store = openOrFail(path);
            ModelContext& ctx = store->mainContext();
            auto* habit = new Habit(QStringLiteral("🏋️"), QStringLiteral("Lift \"heavy\""),
                                    QStringLiteral("#3B82F6"), 5, 7);
            habit->setCurrentValue(3);
            habit->setFirstTrackerDate(when);
            auto* list = new TaskList(QStringLiteral("Groceries"), 2);
            auto* milk = new TaskItem(QStringLiteral("Milk 🥛"), 4, list);
            milk->setPriority(3);
            milk->setChecked(true);
            list->setHighlightedTaskId(milk->id());
            PomodoroConfig* config = PomodoroConfig::singleton(ctx, when);
            config->setPomodoroDuration(50);
            config->setAutoStart(true);
            config->setPomodoroTotalCount(9);
            config->setIsShortBreak(true);
            config->setFirstPomodoroCountDate(when);
            auto* placement = new WidgetPlacement(QStringLiteral("tasks"));
            placement->setMode(QStringLiteral("desktop"));
            placement->setInStatusBar(true);
            placement->setDesktopFrameJSON(QStringLiteral(R"({"x":1,"y":2,"w":3,"h":4})"));
            placement->setAlwaysOnTop(true);
            const QList<Record*> records{
                habit,
                new HabitHistory(QStringLiteral("2024-03-05"), 5, 5, habit),
                list,
                milk,
                placement,
                new TaskItem(QStringLiteral("Bread"), 5, list),
                new WidgetPlacement(QStringLiteral("habits"))};
            for (Record* r : records)
                ctx.insert(r);
            QString error;
            QVERIFY2(ctx.save(&error), qPrintable(error));
            QVERIFY(!ctx.hasChanges());
            written = fields(records, QList<Record*>{config});
        }

        auto store = openOrFail(path);
        ModelContext& ctx = store->mainContext();
        QCOMPARE(fields(ctx.fetch<Habit>(), ctx.fetch<HabitHistory>(), ctx.fetch<TaskList>(),
                        ctx.fetch<TaskItem>(), ctx.fetch<PomodoroConfig>(),
                        ctx.fetch<WidgetPlacement>()),
                 written);
        // A null text stays null rather than coming back empty; the timer's one record stays one.
        QVERIFY(ctx.find<WidgetPlacement>(QStringLiteral("habits"))->desktopFrameJSON().isNull());
        QCOMPARE(PomodoroConfig::singleton(ctx, QDateTime::currentDateTime()),
                 ctx.fetch<PomodoroConfig>().first());
    }

    void unsavedChangesAreVisibleAndDeletesHidden()
    {
        auto store = openOrFail(QStringLiteral(":memory:"));
        ModelContext& ctx = store->mainContext();
        QSignalSpy changed(&ctx, &ModelContext::changed);
        auto* a = new Habit(QStringLiteral("a"), QStringLiteral("A"), {}, 1, 0);
        auto* b = new Habit(QStringLiteral("b"), QStringLiteral("B"), {}, 1, 5);
        auto* c = new Habit(QStringLiteral("c"), QStringLiteral("C"), {}, 1, 1);
        for (Habit* h : {a, b, c})
            QVERIFY(ctx.insert(h));
        QCOMPARE(changed.count(), 3);
        QCOMPARE(ctx.fetch<Habit>(FetchRequest::sortedBy(QStringLiteral("order"))),
                 (QList<Habit*>{a, c, b}));
        QVERIFY(ctx.save());

        ctx.remove(c);
        QCOMPARE(ctx.count<Habit>(), 2);
        QVERIFY(!ctx.find<Habit>(c->key()));
        QVERIFY(ctx.save());
        // A second record with a live key is refused.
        auto clash = std::make_unique<Habit>();
        clash->setId(a->id());
        QVERIFY(!ctx.insert(clash.get()));
        // A field write marks the record changed and announces its kind; writing the
        // value it already has does neither.
        changed.clear();
        b->setName(QStringLiteral("B"));
        QVERIFY(!ctx.hasChanges() && changed.isEmpty());
        b->setName(QStringLiteral("Bee"));
        QVERIFY(ctx.hasChanges());
        QCOMPARE(changed.count(), 1);
        QCOMPARE(changed[0][0].value<RecordKind>(), RecordKind::Habit);
    }

    void cascadesPartialLoadsAndReinsertion()
    {
        const QString path = freshPath();
        QUuid keptTask;
        QString habitKey;
        {
            auto store = openOrFail(path);
            ModelContext& ctx = store->mainContext();
            auto* list = new TaskList(QStringLiteral("L"), 0);
            auto* other = new TaskList(QStringLiteral("Other"), 1);
            auto* habit = new Habit(QStringLiteral("h"), QStringLiteral("H"), {}, 2, 0);
            auto* kept = new TaskItem(QStringLiteral("kept"), 1, other);
            for (Record* r : std::initializer_list<Record*>{list, other, habit, kept})
                ctx.insert(r);
            for (int i = 1; i <= 3; ++i) {
                ctx.insert(new TaskItem(QStringLiteral("t%1").arg(i), i, list));
                ctx.insert(new HabitHistory(QStringLiteral("2024-02-0%1").arg(i), i, 2, habit));
            }
            keptTask = kept->id();
            habitKey = habit->key();
            QVERIFY(ctx.save());
            ctx.remove(list);
            QCOMPARE(ctx.count<TaskItem>(), 1);
            QCOMPARE(other->tasks().size(), 1);
            QVERIFY(ctx.save());
        }
        auto store = openOrFail(path);
        ModelContext& ctx = store->mainContext();
        QCOMPARE(ctx.count<TaskList>(), 1);
        const QList<TaskItem*> tasks = ctx.fetch<TaskItem>();
        QCOMPARE(tasks.size(), 1);
        QCOMPARE(tasks[0]->id(), keptTask);

        // A day loaded on its own and changed: the change survives loading the rest.
        const auto day = ctx.fetch<HabitHistory>(
            FetchRequest::where(QStringLiteral("date"), QStringLiteral("2024-02-02")));
        QCOMPARE(day.size(), 1);
        day[0]->setValue(7);
        Habit* habit = ctx.find<Habit>(habitKey);
        QCOMPARE(habit->history().size(), 3);
        QVERIFY(habit->history().contains(day[0]));
        QCOMPARE(day[0]->value(), 7);
        ctx.remove(habit);
        QCOMPARE(ctx.count<HabitHistory>(), 0);

        // A pull replaces a record by deleting it and inserting one with the same id.
        TaskList* other = ctx.fetch<TaskList>().first();
        auto* replacement = new TaskList(QStringLiteral("From server"), 0);
        replacement->setId(other->id());
        ctx.remove(other);
        QVERIFY(ctx.insert(replacement));
        QVERIFY(ctx.save());
        store = openOrFail(path);
        QCOMPARE(store->mainContext().fetch<TaskList>().first()->name(),
                 QStringLiteral("From server"));
        QCOMPARE(store->mainContext().count<TaskItem>(), 0);
    }

    void failedSaveKeepsChangesAndNewerStoreIsRefused()
    {
        const QString path = freshPath();
        auto store = openOrFail(path);
        ModelContext& ctx = store->mainContext();
        ctx.insert(new Habit(QStringLiteral("h"), QStringLiteral("H"), {}, 2, 0));
        // Another connection holds the write lock: the save fails without losing anything.
        onSecondConnection(path, [&ctx](QSqlQuery& q) {
            QVERIFY(q.exec(QStringLiteral("BEGIN IMMEDIATE")));
            QString error;
            QVERIFY(!ctx.save(&error));
            QVERIFY(!error.isEmpty());
            QVERIFY(ctx.hasChanges());
            QVERIFY(q.exec(QStringLiteral("ROLLBACK")));
        });
        QVERIFY(ctx.save());
        store = openOrFail(path);
        QCOMPARE(store->mainContext().count<Habit>(), 1);

        // A store from a newer version is refused rather than misread.
        store.reset();
        onSecondConnection(path, [](QSqlQuery& q) {
            QVERIFY(q.exec(u"PRAGMA user_version = %1"_s.arg(StoreSchema::Version + 1)));
        });
        QString error;
        QVERIFY(!DataStore::open(path, &error));
        QVERIFY(error.contains(QStringLiteral("newer")));
    }
};

QTEST_GUILESS_MAIN(TestDataStore)
#include "tst_datastore.moc"
