#include "DataTransfer.h"
#include "ExportDocument.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "HabitsService.h"
#include "PomodoroConfig.h"
#include "SyncFixture.h"
#include "TaskItem.h"
#include "TaskList.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>

class TestSyncEngine final : public QObject, private SyncFixture
{
    Q_OBJECT

    QTemporaryDir m_dir;
    int m_stores = 0;
    QString m_path;

    ModelContext& context() { return m_services->store().mainContext(); }
    void pull() { QCoro::waitFor(engine().pullAll()); }

    template <typename T> static QList<T*> sorted(QList<T*> records)
    {
        std::sort(records.begin(), records.end(),
                  [](const T* a, const T* b) { return a->order() < b->order(); });
        return records;
    }

    static QJsonValue parsed(const QByteArray& json)
    {
        const QJsonDocument doc = QJsonDocument::fromJson(j(json));
        return doc.isArray() ? QJsonValue(doc.array()) : QJsonValue(doc.object());
    }

    QJsonValue lastBody(const char* resource) const
    {
        const auto puts = m_server->requestsFor("PUT", api(resource));
        return puts.isEmpty() ? QJsonValue::Undefined : parsed(puts.last().body);
    }

    // Renames the tables that a pull or push reads, through a connection of its own.
    void renameTables(const QString& from, const QString& to) const
    {
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"behind"_s);
            db.setDatabaseName(m_path);
            QVERIFY(db.open());
            for (const char* table : {"habit", "task_list", "pomodoro_config"})
                QVERIFY(QSqlQuery(db).exec(
                    u"ALTER TABLE %1%2 RENAME TO %1%3"_s.arg(QLatin1String(table), from, to)));
        }
        QSqlDatabase::removeDatabase(u"behind"_s);
    }

    void pushAll()
    {
        QCoro::waitFor(engine().pushHabits());
        QCoro::waitFor(engine().pushTasks());
        QCoro::waitFor(engine().pushPomodoro());
    }

    Habit* addHabit(const QString& name, qint64 order, const QStringList& days = {})
    {
        auto* habit = new Habit(u"💧"_s, name, u"#38BDF8"_s, 8, order);
        context().insert(habit);
        for (const QString& day : days)
            context().insert(new HabitHistory(day, 3, 8, habit));
        return habit;
    }

private slots:
    void initTestCase() { setUpOnce(); }

    void init()
    {
        m_path = m_dir.filePath(u"store%1.sqlite"_s.arg(m_stores++));
        m_storePath = m_path;
        setUp();
        startWithToken();
    }

    void cleanup() { m_server.reset(); }

    void pullReplacesLocalData()
    {
        addHabit(u"Water"_s, 0, {"2026-06-08", "2026-06-09"});
        addHabit(u"Gone"_s, 1, {"2026-06-09"});
        addHabit(u"Water"_s, 2, {"2026-06-09", "2026-06-07"}); // same name, later
        context().insert(new TaskList(u"Local"_s, 0));
        PomodoroConfig* config = PomodoroConfig::createDefault(now());
        config->setPomodoroDuration(50);
        config->setAutoStart(true);
        const QDateTime started = config->firstPomodoroCountDate();
        context().insert(config);
        QVERIFY(context().save());
        on("GET", "habits",
           Response::json(200, j("{'data':[{'icon':'1F4DA','name':'Read','color':'#111111',"
                                 "'maxValue':1,'currentValue':0,'firstTrackerDate':'soon'},"
                                 "{'icon':'1F4A7','name':'Water','color':'#38BDF8','maxValue':8,"
                                 "'currentValue':5,'firstTrackerDate':'2024-03-05T14:07:09Z'}]}")));
        // One list of three tasks per highlight the server may send; only 0 and 2 name a task.
        const QList<QByteArray> focus{"0", "2", "3", "-1", "null", {}};
        QByteArray lists;
        for (const QByteArray& f : focus)
            lists += (lists.isEmpty() ? "{'name':'L'," : ",{'name':'L',") +
                     (f.isNull() ? QByteArray() : "'highlightedTask':" + f + ',') +
                     "'tasks':[{'header':'a','checked':false,'subtasks':[]},"
                     "{'header':'b','priority':2,'checked':true,'subtasks':['x']},"
                     "{'header':'c','checked':false,'subtasks':[]}]}";
        on("GET", "tasks", Response::json(200, j("{'data':[" + lists + "]}")));
        on("GET", "pomodoro",
           Response::json(200, j("{'data':{'shortBreakDuration':'7','isBreak':'true',"
                                 "'pomodoroCount':'3 ','firstPomodoroCountDate':''}}")));
        pull();
        QCOMPARE(engine().lastError(), QString());
        QCOMPARE(engine().lastSyncedAt(), now());

        const QList<Habit*> habits = sorted(context().fetch<Habit>());
        QCOMPARE(habits.size(), 2);
        QCOMPARE(habits[0]->name(), u"Read"_s);
        QCOMPARE(habits[0]->firstTrackerDate(), now()); // unreadable: today
        QVERIFY(habits[0]->history().isEmpty());
        QCOMPARE(habits[1]->icon(), u"💧"_s);
        QCOMPARE(habits[1]->order(), qint64(1));
        QCOMPARE(habits[1]->currentValue(), qint64(5));
        QCOMPARE(habits[1]->firstTrackerDate(),
                 QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9), Qt::UTC));
        // The first "Water" gives its days; the second adds only a day the first lacked.
        QStringList dates;
        for (const HabitHistory* h : habits[1]->history())
            dates.append(h->date());
        dates.sort();
        QCOMPARE(dates, QStringList({"2026-06-07", "2026-06-08", "2026-06-09"}));
        // Written through: the file itself holds the moved days.
        QString error;
        auto reopened = DataStore::open(m_path, &error);
        QVERIFY2(reopened, qPrintable(error));
        QCOMPARE(reopened->mainContext().count<HabitHistory>(), 3);
        QCOMPARE(reopened->mainContext().count<Habit>(), 2);

        const QList<TaskList*> pulled = sorted(context().fetch<TaskList>());
        QCOMPARE(pulled.size(), focus.size());
        for (qsizetype i = 0; i < pulled.size(); ++i) {
            const QList<TaskItem*> tasks = sorted(pulled[i]->tasks());
            QCOMPARE(tasks.size(), 3);
            QCOMPARE(tasks[1]->priority(), std::optional<qint64>(2));
            QVERIFY(tasks[1]->checked());
            const int expected = i < 2 ? focus[i].toInt() : -1;
            QCOMPARE(pulled[i]->highlightedTaskId(),
                     expected < 0 ? QUuid() : tasks[expected]->id());
        }

        // The timer takes the server's values; a missing or unreadable one is the default.
        QCOMPARE(context().count<PomodoroConfig>(), 1);
        QCOMPARE(config->pomodoroDuration(), qint64(25));
        QCOMPARE(config->autoStart(), false);
        QCOMPARE(config->shortBreakDuration(), qint64(7));
        QCOMPARE(config->isBreak(), true);
        QCOMPARE(config->pomodoroCount(), qint64(0));
        QCOMPARE(config->firstPomodoroCountDate(), started);
        // No state on the server leaves the local one alone.
        on("GET", "pomodoro", Response::json(200, "{}"));
        config->setPomodoroDuration(40);
        QVERIFY(context().save());
        pull();
        QCOMPARE(config->pomodoroDuration(), qint64(40));
    }

    void pushesEveryKeyOfEachResource()
    {
        // Nothing local: empty collections go out, a missing timer does not.
        pushAll();
        QCOMPARE(lastBody("habits"), QJsonValue(QJsonArray()));
        QCOMPARE(lastBody("tasks"), QJsonValue(QJsonArray()));
        QCOMPARE(count(*m_server, "PUT", "pomodoro"), 0);

        auto* second = new TaskList(u"Second"_s, 5);
        auto* first = new TaskList(u"First"_s, 1);
        auto* late = new TaskItem(u"late"_s, 9, first);
        auto* early = new TaskItem(u"early"_s, 2, first);
        for (Record* record : std::initializer_list<Record*>{second, first, late, early})
            context().insert(record);
        early->setPriority(3);
        late->setChecked(true);
        first->setHighlightedTaskId(late->id());
        second->setHighlightedTaskId(QUuid::createUuid()); // matches no task
        Habit* habit = addHabit(u"Water"_s, 0);
        habit->setIcon(u"1F4A7"_s);
        habit->setCurrentValue(2);
        habit->setFirstTrackerDate(QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9, 500), Qt::UTC));
        PomodoroConfig* config = PomodoroConfig::createDefault(now());
        config->setPomodoroCount(-2);
        config->setIsLongBreak(true);
        config->setFirstPomodoroCountDate(QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5), Qt::UTC));
        context().insert(config);
        QVERIFY(context().save());

        pushAll();
        QCOMPARE(engine().lastError(), QString());
        QCOMPARE(lastBody("tasks"),
                 parsed("[{'name':'First','highlightedTask':1,'tasks':["
                        "{'header':'early','priority':3,'checked':false,'subtasks':[]},"
                        "{'header':'late','checked':true,'subtasks':[]}]},"
                        "{'name':'Second','tasks':[]}]"));
        QCOMPARE(lastBody("habits"),
                 parsed("[{'icon':'1F4A7','name':'Water','color':'#38BDF8','maxValue':8,"
                        "'currentValue':2,'firstTrackerDate':'2024-03-05T14:07:09Z'}]"));
        QCOMPARE(lastBody("pomodoro"),
                 parsed("{'pomodoroDuration':'25','shortBreakDuration':'5',"
                        "'longBreakDuration':'15','pomodorosForLongBreak':'4',"
                        "'autoStart':'false','pomodoroCount':'-2','pomodoroTotalCount':'0',"
                        "'shortBreakCount':'0','longBreakCount':'0','isBreak':'false',"
                        "'isShortBreak':'false','isLongBreak':'true',"
                        "'firstPomodoroCountDate':'2026-01-02T03:04:05Z'}"));
    }

    void anImportIsPushedOnceLikeAnEdit()
    {
        addHabit(u"Tea"_s, 0, {"2024-05-05"});
        QVERIFY(context().save());
        QString error;
        const auto doc =
            ExportDocument::read(ExportDocument::write(context(), now(), &error), &error);
        QVERIFY2(doc, qPrintable(error));
        context().remove(HabitsService::findByName(u"Tea"_s, context()));
        QVERIFY(context().save());
        QCOMPARE(m_server->requests().size(), 0);

        QStringList summary;
        QVERIFY(m_services->transfer().importDocument(*doc, ExportDocument::Mode::Merge, &summary,
                                                      &error));
        QTRY_COMPARE(count(*m_server, "PUT", "pomodoro"), 1);
        QTRY_COMPARE(count(*m_server, "PUT", "habits"), 1);
        QTRY_COMPARE(count(*m_server, "PUT", "tasks"), 1);
        QVERIFY(QJsonDocument(lastBody("habits").toArray()).toJson().contains("\"Tea\""));

        // Signed out, an import stays local.
        auth().signOut();
        QVERIFY(m_services->transfer().importDocument(*doc, ExportDocument::Mode::Replace, &summary,
                                                      &error));
        QTest::qWait(100); // time for a push that must not come
        QCOMPARE(m_server->requests().size(), 3);
    }

    void dropsPushesWhileApplyingOrSignedOut()
    {
        addHabit(u"Water"_s, 0);
        QVERIFY(context().save());
        int attempts = 0;
        connect(&engine(), &SyncEngine::isApplyingRemoteChanged, this, [this, &attempts] {
            if (engine().isApplyingRemote()) {
                ++attempts;
                pushAll();
            }
        });
        on("GET", "pomodoro", Response::json(200, j("{'data':{}}")));
        pull();
        disconnect(&engine(), &SyncEngine::isApplyingRemoteChanged, this, nullptr);
        QCOMPARE(attempts, 1);
        QCOMPARE(m_server->requests().size(), 3); // the pull's GETs only

        // Signed out, neither pushes nor a pull reach the server or look busy.
        auth().signOut();
        QSignalSpy syncing(&engine(), &SyncEngine::isSyncingChanged);
        pushAll();
        pull();
        QCOMPARE(engine().lastError(), u"Not signed in"_s);
        QCOMPARE(syncing.count(), 0);
        QCOMPARE(m_server->requests().size(), 3);
    }

    void failuresChangeNothingLocal_data()
    {
        QTest::addColumn<QByteArray>("method"); // GET: a pull; PUT: the push of `resource`
        QTest::addColumn<QByteArray>("resource");
        QTest::addColumn<Response>("response");
        QTest::addColumn<QString>("error");
        const QString rejected = u"Token rejected — sign in again"_s;
        const QString unreadable = u"could not read local data"_s;
        const auto row = [](const char* method, const char* resource, const Response& response,
                            const QString& error) {
            QTest::addRow("%s %s %d", method, resource, response.status)
                << QByteArray(method) << QByteArray(resource) << response << error;
        };
        row("GET", "habits", reply(503), u"HTTP 503: "_s); // after the tasks came in
        row("GET", "habits", Response::json(200, j("{'data':[{}]}")),
            u"Decoding failed: key \"icon\" missing at data[0]"_s);
        row("GET", "pomodoro", {0, {}, {}, 0, true}, u"Network error: Connection closed"_s);
        row("GET", "habits", reply(401), rejected);
        row("GET", "tasks", reply(200, "{\"data\":[]}"), u"Pull failed: "_s + unreadable);
        for (const char* resource : {"habits", "tasks", "pomodoro"}) {
            const QString push = u"Push (%1) failed: "_s.arg(QLatin1String(resource));
            row("PUT", resource, reply(401), rejected);
            row("PUT", resource, reply(500, "oops"), push + u"HTTP 500: oops");
            // Nothing of an unreadable store reaches the server, and the user is told.
            row("PUT", resource, reply(200), push + unreadable);
        }
    }

    void failuresChangeNothingLocal()
    {
        QFETCH(QByteArray, method);
        QFETCH(QByteArray, resource);
        QFETCH(Response, response);
        QFETCH(QString, error);
        addHabit(u"Local"_s, 0, {"2026-06-09"});
        context().insert(new TaskList(u"Mine"_s, 0));
        context().insert(PomodoroConfig::createDefault(now()));
        QVERIFY(context().save());
        on("GET", "pomodoro", Response::json(200, j("{'data':{'pomodoroDuration':'50'}}")));
        on(method, resource, response);
        const bool readable = !error.endsWith(u"could not read local data");
        if (!readable) {
            // A fresh context over a store whose tables have gone missing behind it.
            startWithToken();
            renameTables(u""_s, u"_away"_s);
        }
        QSignalSpy applying(&engine(), &SyncEngine::isApplyingRemoteChanged);
        if (method == "GET")
            pull();
        else if (resource == "habits")
            QCoro::waitFor(engine().pushHabits());
        else if (resource == "tasks")
            QCoro::waitFor(engine().pushTasks());
        else
            QCoro::waitFor(engine().pushPomodoro());
        QCOMPARE(engine().lastError(), error);
        if (!readable)
            renameTables(u"_away"_s, u""_s);
        // Only a rejected token signs out, and then forgets it.
        QCOMPARE(auth().isSignedIn(), response.status != 401);
        QTRY_COMPARE(m_keychain->stored.has_value(), response.status != 401);
        QVERIFY(!engine().isSyncing());
        QCOMPARE(applying.count(), 0);
        QVERIFY(!engine().lastSyncedAt().isValid());
        QCOMPARE(context().count<HabitHistory>(), 1);
        QCOMPARE(context().fetch<TaskList>().value(0)->name(), u"Mine"_s);
        QCOMPARE(context().fetch<PomodoroConfig>().value(0)->pomodoroDuration(), qint64(25));
        QVERIFY(!context().hasChanges());
        QVERIFY(readable || method == "GET" || m_server->requests().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestSyncEngine)
#include "tst_syncengine.moc"
