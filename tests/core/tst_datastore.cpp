#include "Clock.h"
#include "DataStore.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "PomodoroConfig.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "WidgetPlacement.h"

#include <QFile>
#include <QMetaProperty>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

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
            qWarning("open failed: %s", qPrintable(error));
        return store;
    }

private slots:
    void roundTripsEveryField()
    {
        const QString path = freshPath();
        const QDateTime when = QDateTime::fromMSecsSinceEpoch(1'709'596'800'456);
        // Every field of every kind, as written, keyed by record kind and key.
        QHash<QString, QVariantMap> written;
        auto remember = [&written](const Record* r) {
            QVariantMap values;
            const QMetaObject* meta = r->metaObject();
            for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i)
                values.insert(QString::fromLatin1(meta->property(i).name()),
                              meta->property(i).read(r));
            written.insert(QString::number(int(r->kind())) + r->key(), values);
        };
        {
            auto store = openOrFail(path);
            QVERIFY(store);
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
            PomodoroConfig* config = PomodoroConfig::singleton(ctx);
            config->setPomodoroDuration(50);
            config->setAutoStart(true);
            config->setPomodoroTotalCount(9);
            config->setIsBreak(true);
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
                new TaskItem(QStringLiteral("Bread"), 5, list),
                placement,
                new WidgetPlacement(QStringLiteral("habits"))};
            for (Record* r : records)
                ctx.insert(r);
            QString error;
            QVERIFY2(ctx.save(&error), qPrintable(error));
            QVERIFY(!ctx.hasChanges());
            for (const Record* r : records)
                remember(r);
            remember(config);
        }

        auto store = openOrFail(path);
        QVERIFY(store);
        ModelContext& ctx = store->mainContext();
        QList<Record*> loaded;
        for (Record* r : ctx.fetch<Habit>())
            loaded << r;
        for (Record* r : ctx.fetch<HabitHistory>())
            loaded << r;
        for (Record* r : ctx.fetch<TaskList>())
            loaded << r;
        for (Record* r : ctx.fetch<TaskItem>())
            loaded << r;
        for (Record* r : ctx.fetch<PomodoroConfig>())
            loaded << r;
        for (Record* r : ctx.fetch<WidgetPlacement>())
            loaded << r;
        QCOMPARE(loaded.size(), written.size());
        for (const Record* r : loaded) {
            const QVariantMap before = written.value(QString::number(int(r->kind())) + r->key());
            QVERIFY2(!before.isEmpty(), qPrintable(r->key()));
            for (auto it = before.begin(); it != before.end(); ++it)
                QVERIFY2(r->property(it.key().toLatin1().constData()) == it.value(),
                         qPrintable(it.key()));
        }
        // Relationships and optional values survive too.
        const Habit* habit = ctx.fetch<Habit>().first();
        QCOMPARE(habit->history().first()->habit(), habit);
        const TaskItem* bread = ctx.fetch<TaskItem>(FetchRequest::where(QStringLiteral("header"),
                                                                        QStringLiteral("Bread")))
                                    .first();
        QCOMPARE(bread->priority(), std::nullopt);
        QCOMPARE(bread->list(), ctx.fetch<TaskList>().first());
        QVERIFY(ctx.find<WidgetPlacement>(QStringLiteral("habits"))->desktopFrameJSON().isNull());
        QCOMPARE(PomodoroConfig::singleton(ctx), ctx.fetch<PomodoroConfig>().first());
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

        const QList<Habit*> sorted =
            ctx.fetch<Habit>(FetchRequest::sortedBy(QStringLiteral("order")));
        QCOMPARE(sorted, (QList<Habit*>{a, c, b}));
        QVERIFY(ctx.save());

        ctx.remove(c);
        QCOMPARE(ctx.count<Habit>(), 2);
        QVERIFY(!ctx.find<Habit>(c->key()));
        // A second record with a live key is refused.
        auto* clash = new Habit;
        clash->setId(a->id());
        QVERIFY(!ctx.insert(clash));
        delete clash;
        // Field writes mark the record changed and announce the kind.
        changed.clear();
        b->setName(QStringLiteral("Bee"));
        QCOMPARE(changed.count(), 1);
        QCOMPARE(changed[0][0].value<RecordKind>(), RecordKind::Habit);
        QVERIFY(ctx.hasChanges());
        QVERIFY(ctx.save());
        QCOMPARE(ctx.count<Habit>(), 2);
    }

    void cascadesAndReinsertion()
    {
        const QString path = freshPath();
        QUuid keptTask;
        {
            auto store = openOrFail(path);
            ModelContext& ctx = store->mainContext();
            auto* list = new TaskList(QStringLiteral("L"), 0);
            auto* other = new TaskList(QStringLiteral("Other"), 1);
            ctx.insert(list);
            ctx.insert(other);
            for (int i = 0; i < 3; ++i)
                ctx.insert(new TaskItem(QStringLiteral("t%1").arg(i), i, list));
            auto* lone = new TaskItem(QStringLiteral("lone"), 0, other);
            auto* kept = new TaskItem(QStringLiteral("kept"), 1, other);
            keptTask = kept->id();
            ctx.insert(lone);
            ctx.insert(kept);
            auto* habit = new Habit(QStringLiteral("h"), QStringLiteral("H"), {}, 2, 0);
            ctx.insert(habit);
            ctx.insert(new HabitHistory(QStringLiteral("2024-01-01"), 1, 2, habit));
            ctx.insert(new HabitHistory(QStringLiteral("2024-01-02"), 2, 2, habit));
            QVERIFY(ctx.save());

            ctx.remove(list);
            ctx.remove(lone);
            QCOMPARE(ctx.count<TaskItem>(), 1);
            QCOMPARE(other->tasks().size(), 1);
            ctx.remove(habit);
            QCOMPARE(ctx.count<HabitHistory>(), 0);
            QVERIFY(ctx.save());
        }
        auto store = openOrFail(path);
        ModelContext& ctx = store->mainContext();
        QCOMPARE(ctx.count<TaskList>(), 1);
        const QList<TaskItem*> tasks = ctx.fetch<TaskItem>();
        QCOMPARE(tasks.size(), 1);
        QCOMPARE(tasks[0]->id(), keptTask);
        QCOMPARE(ctx.count<HabitHistory>(), 0);

        // A pull replaces a record by deleting it and inserting one with the same id.
        TaskList* other = ctx.fetch<TaskList>().first();
        const QUuid id = other->id();
        ctx.remove(other);
        auto* replacement = new TaskList(QStringLiteral("From server"), 0);
        replacement->setId(id);
        QVERIFY(ctx.insert(replacement));
        QVERIFY(ctx.save());
        QCOMPARE(ctx.fetch<TaskList>().size(), 1);
        QCOMPARE(ctx.fetch<TaskList>().first()->name(), QStringLiteral("From server"));
        QCOMPARE(ctx.count<TaskItem>(), 0);
    }

    void historyIsLoadedOnDemand()
    {
        const QString path = freshPath();
        QUuid habitId;
        {
            auto store = openOrFail(path);
            ModelContext& ctx = store->mainContext();
            auto* habit = new Habit(QStringLiteral("h"), QStringLiteral("H"), {}, 2, 0);
            habitId = habit->id();
            ctx.insert(habit);
            for (int d = 1; d <= 28; ++d)
                ctx.insert(new HabitHistory(QStringLiteral("2024-02-%1").arg(d, 2, 10, QChar(u'0')),
                                            d % 3, 2, habit));
            QVERIFY(ctx.save());
        }
        auto store = openOrFail(path);
        ModelContext& ctx = store->mainContext();
        const auto day = ctx.fetch<HabitHistory>(
            FetchRequest::where(QStringLiteral("date"), QStringLiteral("2024-02-10")));
        QCOMPARE(day.size(), 1);
        QCOMPARE(day[0]->value(), 1);
        // Only that day is in memory: its children count is 1 until the habit's are asked for.
        QCOMPARE(ctx.findChildren<HabitHistory*>().size(), 1);
        day[0]->setValue(2);
        // The unsaved change wins over the stored row when the habit's history loads.
        Habit* habit = ctx.find<Habit>(habitId.toString(QUuid::WithoutBraces));
        const QList<HabitHistory*> all = habit->history();
        QCOMPARE(all.size(), 28);
        QVERIFY(all.contains(day[0]));
        QCOMPARE(day[0]->value(), 2);
    }

    void failedSaveKeepsChanges()
    {
        const QString path = freshPath();
        auto store = openOrFail(path);
        ModelContext& ctx = store->mainContext();
        auto* habit = new Habit(QStringLiteral("h"), QStringLiteral("H"), {}, 2, 0);
        ctx.insert(habit);
        // Another connection holds the write lock: the save must fail without losing anything.
        {
            QSqlDatabase other =
                QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("blocker"));
            other.setDatabaseName(path);
            QVERIFY(other.open());
            QSqlQuery q(other);
            QVERIFY(q.exec(QStringLiteral("BEGIN IMMEDIATE")));
            QString error;
            QVERIFY(!ctx.save(&error));
            QVERIFY(!error.isEmpty());
            QVERIFY(ctx.hasChanges());
            QVERIFY(q.exec(QStringLiteral("ROLLBACK")));
            other.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("blocker"));
        QVERIFY(ctx.save());
        store.reset();
        auto reopened = openOrFail(path);
        QCOMPARE(reopened->mainContext().count<Habit>(), 1);
    }

    void refusesDamagedOrNewerStores()
    {
        // Random bytes: refused, and the file stays byte for byte as it was.
        const QString damaged = freshPath();
        QByteArray noise(4096, '\0');
        for (int i = 0; i < noise.size(); ++i)
            noise[i] = char((i * 131 + 7) % 251);
        {
            QFile f(damaged);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(noise);
        }
        QString error;
        QVERIFY(!DataStore::open(damaged, &error));
        QVERIFY(!error.isEmpty());
        QFile f(damaged);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), noise);
        QVERIFY(!QFile::exists(damaged + QStringLiteral("-wal")));

        // A store from a newer version.
        const QString newer = freshPath();
        {
            QSqlDatabase db =
                QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("n"));
            db.setDatabaseName(newer);
            QVERIFY(db.open());
            QSqlQuery(db).exec(QStringLiteral("PRAGMA user_version = 2"));
            db.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("n"));
        QVERIFY(!DataStore::open(newer, &error));
        QVERIFY(error.contains(QStringLiteral("newer")));

        // An unwritable folder.
        const QString folder = m_dir.filePath(QStringLiteral("locked"));
        QVERIFY(QDir().mkpath(folder));
        QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        if (QFileInfo(folder).isWritable())
            QSKIP("running with privileges that ignore folder permissions");
        QVERIFY(!DataStore::open(folder + QStringLiteral("/store.sqlite"), &error));
    }
};

QTEST_GUILESS_MAIN(TestDataStore)
#include "tst_datastore.moc"
