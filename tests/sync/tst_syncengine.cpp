#include "Clock.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "PomodoroConfig.h"
#include "SyncFixture.h"
#include "TaskItem.h"
#include "TaskList.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>

class TestSyncEngine final : public QObject, private SyncFixture
{
    Q_OBJECT

    QDateTime m_now;
    QTemporaryDir m_dir;
    int m_stores = 0;
    QString m_path;

    static ModelContext& context() { return DataStore::shared().mainContext(); }

    template <typename T> static QList<T*> sorted()
    {
        return context().fetch<T>(FetchRequest::sortedBy(QStringLiteral("order")));
    }

    static QJsonValue parsed(const QByteArray& json)
    {
        const QJsonDocument doc = QJsonDocument::fromJson(json);
        return doc.isArray() ? QJsonValue(doc.array()) : QJsonValue(doc.object());
    }

    QJsonValue lastBody(const char* path) const
    {
        const auto puts = m_server->requestsFor("PUT", QString::fromLatin1(path));
        return puts.isEmpty() ? QJsonValue::Undefined : parsed(puts.last().body);
    }

    static void pull() { QCoro::waitFor(engine().pullAll()); }

    static void pushAll()
    {
        QCoro::waitFor(engine().pushHabits());
        QCoro::waitFor(engine().pushTasks());
        QCoro::waitFor(engine().pushPomodoro());
    }

    static Habit* addHabit(const QString& name, qint64 order, const QStringList& days = {})
    {
        auto* habit = new Habit(QStringLiteral("💧"), name, QStringLiteral("#38BDF8"), 8, order);
        context().insert(habit);
        for (const QString& day : days)
            context().insert(new HabitHistory(day, 3, 8, habit));
        return habit;
    }

private slots:
    void initTestCase()
    {
        setUpOnce();
        Clock::setSource([this] { return m_now; });
    }

    void cleanupTestCase() { Clock::setSource({}); }

    void init()
    {
        m_now = QDateTime(QDate(2026, 6, 10), QTime(9, 0), Qt::UTC);
        QString error;
        m_path = m_dir.filePath(QStringLiteral("store%1.sqlite").arg(m_stores++));
        DataStore::setShared(DataStore::open(m_path, &error));
        setUp();
        startWithToken();
        engine().setContextSource({});
    }

    void cleanup() { m_server.reset(); }

    void pullReplacesHabitsAndKeepsTheirHistory()
    {
        addHabit(QStringLiteral("Water"), 0, {"2026-06-08", "2026-06-09"});
        addHabit(QStringLiteral("Gone"), 1, {"2026-06-09"});
        addHabit(QStringLiteral("Water"), 2, {"2026-06-09", "2026-06-07"}); // same name, later
        QVERIFY(context().save());
        m_server->on("GET", QStringLiteral("/api/v1/habits"),
                     Response::json(
                         200, j("{'data':[{'icon':'1F4DA','name':'Read','color':'#111111',"
                                "'maxValue':1,'currentValue':0,'firstTrackerDate':'soon'},"
                                "{'icon':'1F4A7','name':'Water','color':'#38BDF8','maxValue':8,"
                                "'currentValue':5,'firstTrackerDate':'2024-03-05T14:07:09Z'}]}")));
        pull();
        QCOMPARE(engine().lastError(), QString());

        const QList<Habit*> habits = sorted<Habit>();
        QCOMPARE(habits.size(), 2);
        QCOMPARE(habits[0]->name(), QStringLiteral("Read"));
        QCOMPARE(habits[0]->order(), qint64(0));
        QCOMPARE(habits[0]->firstTrackerDate(), m_now); // unreadable: today
        QVERIFY(habits[0]->history().isEmpty());
        QCOMPARE(habits[1]->icon(), QStringLiteral("💧"));
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
        QCOMPARE(context().count<HabitHistory>(), 3);
        QCOMPARE(auth().lastSyncedAt(), m_now);

        // Written through: the file itself holds the moved days.
        QString error;
        auto reopened = DataStore::open(m_path, &error);
        QVERIFY2(reopened, qPrintable(error));
        QCOMPARE(reopened->mainContext().count<HabitHistory>(), 3);
        QCOMPARE(reopened->mainContext().count<Habit>(), 2);
    }

    void mapsHighlightedTaskBothWays_data()
    {
        QTest::addColumn<QByteArray>("received");
        QTest::addColumn<int>("expected"); // -1: no highlighted task
        QTest::newRow("first") << QByteArray("0") << 0;
        QTest::newRow("last") << QByteArray("2") << 2;
        QTest::newRow("one past the end") << QByteArray("3") << -1;
        QTest::newRow("negative") << QByteArray("-1") << -1;
        QTest::newRow("null") << QByteArray("null") << -1;
        QTest::newRow("absent") << QByteArray() << -1;
    }

    void mapsHighlightedTaskBothWays()
    {
        QFETCH(QByteArray, received);
        QFETCH(int, expected);
        context().insert(new TaskList(QStringLiteral("Local"), 0));
        QVERIFY(context().save());
        // Three tasks, the focus on the one at `received`.
        const QByteArray focus =
            received.isNull() ? QByteArray() : "\"highlightedTask\":" + received + ',';
        m_server->on(
            "GET", QStringLiteral("/api/v1/tasks"),
            Response::json(200, j("{'data':[{'name':'Home',") + focus +
                                    j("'tasks':[{'header':'a','checked':false,'subtasks':[]},"
                                      "{'header':'b','priority':2,'checked':true,'subtasks':['x']},"
                                      "{'header':'c','checked':false,'subtasks':[]}]}]}")));
        pull();
        QCOMPARE(engine().lastError(), QString());
        const QList<TaskList*> lists = sorted<TaskList>();
        QCOMPARE(lists.size(), 1);
        QList<TaskItem*> tasks = lists[0]->tasks();
        std::sort(tasks.begin(), tasks.end(),
                  [](TaskItem* a, TaskItem* b) { return a->order() < b->order(); });
        QCOMPARE(tasks.size(), 3);
        QCOMPARE(tasks[1]->priority(), std::optional<qint64>(2));
        QCOMPARE(tasks[1]->checked(), true);
        QCOMPARE(lists[0]->highlightedTaskId(), expected < 0 ? QUuid() : tasks[expected]->id());

        QCoro::waitFor(engine().pushTasks());
        const QJsonObject sent = lastBody("/api/v1/tasks").toArray().at(0).toObject();
        QCOMPARE(sent.contains(QStringLiteral("highlightedTask")), expected >= 0);
        if (expected >= 0)
            QCOMPARE(sent.value(QStringLiteral("highlightedTask")).toInt(), expected);
    }

    void pullAppliesNothingWhenAnyGetFails_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<Response>("response");
        QTest::addColumn<QString>("error");
        QTest::newRow("tasks") << "/api/v1/tasks" << Response{500, "down", {}, 0, false}
                               << "HTTP 500: down";
        QTest::newRow("habits after tasks")
            << "/api/v1/habits" << Response{503, {}, {}, 0, false} << "HTTP 503: ";
        QTest::newRow("habits undecodable")
            << "/api/v1/habits" << Response::json(200, j("{'data':[{}]}"))
            << "Decoding failed: key \"icon\" missing at data[0]";
        QTest::newRow("pomodoro dropped") << "/api/v1/pomodoro" << Response{0, {}, {}, 0, true}
                                          << "Network error: Connection closed";
    }

    void pullAppliesNothingWhenAnyGetFails()
    {
        QFETCH(QString, path);
        QFETCH(Response, response);
        QFETCH(QString, error);
        addHabit(QStringLiteral("Local"), 0, {"2026-06-09"});
        context().insert(new TaskList(QStringLiteral("Mine"), 0));
        QVERIFY(context().save());
        m_server->on("GET", QStringLiteral("/api/v1/pomodoro"),
                     Response::json(200, j("{'data':{'pomodoroDuration':'50'}}")));
        m_server->on("GET", path, response);
        QSignalSpy applying(&engine(), &SyncEngine::isApplyingRemoteChanged);

        pull();
        QCOMPARE(engine().lastError(), error);
        QCOMPARE(applying.count(), 0);
        QVERIFY(!engine().isSyncing());
        QCOMPARE(context().count<HabitHistory>(), 1); // the local habit's day
        QCOMPARE(sorted<TaskList>()[0]->name(), QStringLiteral("Mine"));
        QCOMPARE(context().count<PomodoroConfig>(), 0);
        QVERIFY(!context().hasChanges());
        QVERIFY(!auth().lastSyncedAt().isValid());
        QVERIFY(auth().isSignedIn());
    }

    void pullOverwritesTimerConfiguration()
    {
        PomodoroConfig* config = PomodoroConfig::createDefault();
        config->setPomodoroDuration(50);
        config->setAutoStart(true);
        const QDateTime started = config->firstPomodoroCountDate();
        context().insert(config);
        QVERIFY(context().save());
        m_server->on("GET", QStringLiteral("/api/v1/pomodoro"),
                     Response::json(200, j("{'data':{'shortBreakDuration':'+7','autoStart':'True',"
                                           "'pomodoroCount':'3 ','isBreak':'true',"
                                           "'firstPomodoroCountDate':''}}")));
        pull();
        QCOMPARE(context().count<PomodoroConfig>(), 1);
        QCOMPARE(config->pomodoroDuration(), qint64(25)); // missing: the default, not 50
        QCOMPARE(config->shortBreakDuration(), qint64(7));
        QCOMPARE(config->autoStart(), false);
        QCOMPARE(config->pomodoroCount(), qint64(0));
        QCOMPARE(config->isBreak(), true);
        QCOMPARE(config->firstPomodoroCountDate(), started);

        // No state on the server leaves the local one alone.
        m_server->on("GET", QStringLiteral("/api/v1/pomodoro"), Response::json(200, "{}"));
        config->setPomodoroDuration(40);
        QVERIFY(context().save());
        pull();
        QCOMPARE(config->pomodoroDuration(), qint64(40));
    }

    void pushesEveryKeyOfEachResource()
    {
        // Nothing local: empty collections go out, a missing timer does not.
        pushAll();
        QCOMPARE(lastBody("/api/v1/habits"), QJsonValue(QJsonArray()));
        QCOMPARE(lastBody("/api/v1/tasks"), QJsonValue(QJsonArray()));
        QVERIFY(m_server->requestsFor("PUT", QStringLiteral("/api/v1/pomodoro")).isEmpty());

        auto* second = new TaskList(QStringLiteral("Second"), 5);
        auto* first = new TaskList(QStringLiteral("First"), 1);
        context().insert(second);
        context().insert(first);
        auto* late = new TaskItem(QStringLiteral("late"), 9, first);
        auto* early = new TaskItem(QStringLiteral("early"), 2, first);
        early->setPriority(3);
        late->setChecked(true);
        context().insert(late);
        context().insert(early);
        first->setHighlightedTaskId(late->id());
        second->setHighlightedTaskId(QUuid::createUuid()); // matches no task
        Habit* habit = addHabit(QStringLiteral("Water"), 0);
        habit->setIcon(QStringLiteral("1F4A7"));
        habit->setCurrentValue(2);
        habit->setFirstTrackerDate(QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9, 500), Qt::UTC));
        PomodoroConfig* config = PomodoroConfig::createDefault();
        config->setPomodoroCount(-2);
        config->setIsLongBreak(true);
        config->setFirstPomodoroCountDate(QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5), Qt::UTC));
        context().insert(config);
        QVERIFY(context().save());

        pushAll();
        QCOMPARE(engine().lastError(), QString());
        QCOMPARE(lastBody("/api/v1/tasks"),
                 parsed(j("[{'name':'First','highlightedTask':1,'tasks':["
                          "{'header':'early','priority':3,'checked':false,'subtasks':[]},"
                          "{'header':'late','checked':true,'subtasks':[]}]},"
                          "{'name':'Second','tasks':[]}]")));
        QCOMPARE(lastBody("/api/v1/habits"),
                 parsed(j("[{'icon':'1F4A7','name':'Water','color':'#38BDF8','maxValue':8,"
                          "'currentValue':2,'firstTrackerDate':'2024-03-05T14:07:09Z'}]")));
        QCOMPARE(lastBody("/api/v1/pomodoro"),
                 parsed(j("{'pomodoroDuration':'25','shortBreakDuration':'5',"
                          "'longBreakDuration':'15','pomodorosForLongBreak':'4',"
                          "'autoStart':'false','pomodoroCount':'-2','pomodoroTotalCount':'0',"
                          "'shortBreakCount':'0','longBreakCount':'0','isBreak':'false',"
                          "'isShortBreak':'false','isLongBreak':'true',"
                          "'firstPomodoroCountDate':'2026-01-02T03:04:05Z'}")));
    }

    void dropsPushesWhileApplyingOrSignedOut()
    {
        addHabit(QStringLiteral("Water"), 0);
        QVERIFY(context().save());
        int attempts = 0;
        connect(&engine(), &SyncEngine::isApplyingRemoteChanged, this, [&attempts] {
            if (!engine().isApplyingRemote())
                return;
            ++attempts;
            pushAll();
        });
        m_server->on("GET", QStringLiteral("/api/v1/pomodoro"),
                     Response::json(200, j("{'data':{}}")));
        pull();
        disconnect(&engine(), &SyncEngine::isApplyingRemoteChanged, this, nullptr);
        QCOMPARE(attempts, 1);
        QCOMPARE(m_server->requests().size(), 3); // the pull's GETs only

        // Signed out, neither pushes nor a pull reach the server or look busy.
        auth().signOut();
        QSignalSpy syncing(&engine(), &SyncEngine::isSyncingChanged);
        pushAll();
        pull();
        QCOMPARE(engine().lastError(), QStringLiteral("Not signed in"));
        QCOMPARE(syncing.count(), 0);
        QCOMPARE(m_server->requests().size(), 3);
    }

    void reportsFailures_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("readable");
        QTest::addColumn<QString>("error");
        const QString rejected = QStringLiteral("Token rejected — sign in again");
        QTest::newRow("pull 401") << "pull" << 401 << true << rejected;
        for (const char* op : {"habits", "tasks", "pomodoro"}) {
            const QString push = QStringLiteral("Push (%1) failed: ").arg(QLatin1String(op));
            QTest::addRow("%s 401", op) << op << 401 << true << rejected;
            QTest::addRow("%s 500", op) << op << 500 << true << push + u"HTTP 500: oops";
            QTest::addRow("%s unreadable", op)
                << op << 200 << false << push + u"could not read local data";
        }
    }

    void reportsFailures()
    {
        QFETCH(QString, operation);
        QFETCH(int, status);
        QFETCH(bool, readable);
        QFETCH(QString, error);
        context().insert(PomodoroConfig::createDefault());
        QVERIFY(context().save());
        const Response failing{status, "oops", {}, 0, false};
        for (const char* path : {"/api/v1/tasks", "/api/v1/habits", "/api/v1/pomodoro"}) {
            m_server->on("PUT", QString::fromLatin1(path), failing);
            if (operation == u"pull")
                m_server->on("GET", QString::fromLatin1(path), failing);
        }
        if (!readable)
            engine().setContextSource([] { return nullptr; });

        if (operation == u"pull")
            pull();
        else if (operation == u"habits")
            QCoro::waitFor(engine().pushHabits());
        else if (operation == u"tasks")
            QCoro::waitFor(engine().pushTasks());
        else
            QCoro::waitFor(engine().pushPomodoro());
        QCOMPARE(engine().lastError(), error);
        // Only a rejected token signs out, and then forgets it.
        QCOMPARE(auth().isSignedIn(), status != 401);
        QCOMPARE(m_keychain->stored.has_value(), status != 401);
        if (!readable)
            QVERIFY(m_server->requests().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestSyncEngine)
#include "tst_syncengine.moc"
