#include "AuthService.h"
#include "Clock.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "FakeKeychain.h"
#include "FakeSyncServer.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "HabitsService.h"
#include "KeychainStore.h"
#include "NotificationBackend.h"
#include "NotificationService.h"
#include "PomodoroService.h"
#include "Preferences.h"
#include "SyncEngine.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "TasksService.h"

#include <QCoro/QCoroTask>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {
class QuietBackend final : public NotificationBackend
{
public:
    QCoro::Task<QString> notify(const QString&, const QString&) override { co_return QString(); }
    QCoro::Task<QString> checkServer() override { co_return QString(); }
};

QJsonValue lastPut(const FakeSyncServer& server, const QString& path)
{
    const QList<FakeSyncServer::Request> puts = server.requestsFor("PUT", path);
    if (puts.isEmpty())
        return {};
    // A PUT sends the resource bare: an array of lists or habits, the timer's dictionary.
    const QJsonDocument body = QJsonDocument::fromJson(puts.last().body);
    return body.isArray() ? QJsonValue(body.array()) : QJsonValue(body.object());
}
} // namespace

// One day of use across the three services, one store and one sync server: the
// pieces must agree on what was counted, checked and finished, before and after
// midnight and a pull.
class TestDayScenario final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QDateTime m_now;
    FakeSyncServer m_server;

    ModelContext& context() { return DataStore::shared().mainContext(); }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        m_now = QDateTime(QDate(2026, 6, 10), QTime(9, 0));
        Clock::setSource([this] { return m_now; });
        QString error;
        DataStore::setShared(
            DataStore::open(m_dir.filePath(QStringLiteral("store.sqlite")), &error));
        QVERIFY2(error.isEmpty(), qPrintable(error));
        NotificationService::shared().setBackend(std::make_unique<QuietBackend>());
        m_server.serveEmptyAccount();
        Preferences::setServerURLOverride(m_server.url().toString());
        auto keychain = std::make_shared<FakeKeychain>();
        keychain->stored = QByteArrayLiteral("day-token");
        KeychainStore::setBackend(keychain);
        AuthService::shared().reload();
        QVERIFY(AuthService::shared().isSignedIn());
    }

    void cleanupTestCase() { Clock::setSource({}); }

    void aDayOfUse()
    {
        TasksService& tasks = TasksService::shared();
        HabitsService& habits = HabitsService::shared();
        auto timer = PomodoroService::createForTesting();
        timer->bootstrap();
        tasks.bootstrap();
        habits.bootstrap();

        // Morning: a task list, a habit, a focus phase.
        TaskList* list = context().fetch<TaskList>().first();
        TaskItem* milk = tasks.addTask(QStringLiteral("Buy milk"), list, context());
        TaskItem* bank = tasks.addTask(QStringLiteral("Call the bank"), list, context());
        tasks.toggleCheck(milk, context());
        tasks.highlight(bank, list, context());
        Habit* water = habits.createHabit(QStringLiteral("💧"), QStringLiteral("Water"),
                                          QStringLiteral("#38BDF8"), 3, context());
        habits.increment(water, context());
        habits.increment(water, context());
        timer->start();
        m_now = m_now.addSecs(25 * 60);
        timer->didBecomeActive();
        QCOMPARE(timer->phaseLabel(), QStringLiteral("Short Break"));

        QTRY_VERIFY(!lastPut(m_server, QStringLiteral("/api/v1/tasks")).isUndefined());
        QTRY_VERIFY(!lastPut(m_server, QStringLiteral("/api/v1/habits")).isUndefined());
        QTRY_COMPARE(lastPut(m_server, QStringLiteral("/api/v1/pomodoro"))[u"pomodoroTotalCount"]
                         .toVariant()
                         .toInt(),
                     1);
        for (const FakeSyncServer::Request& r : m_server.requests())
            QCOMPARE(r.header("Authorization"), QByteArrayLiteral("Bearer day-token"));
        const QJsonArray sentLists = lastPut(m_server, QStringLiteral("/api/v1/tasks")).toArray();
        QCOMPARE(sentLists.size(), 1);
        QCOMPARE(sentLists[0][u"name"].toString(), QStringLiteral("Example Task List"));
        const QJsonArray sentTasks = sentLists[0][u"tasks"].toArray();
        QCOMPARE(sentTasks.size(), 2);
        QCOMPARE(sentTasks[0][u"header"].toString(), QStringLiteral("Buy milk"));
        QVERIFY(sentTasks[0][u"checked"].toBool());
        QVERIFY(!sentTasks[1][u"checked"].toBool());
        QCOMPARE(sentLists[0][u"highlightedTask"].toInt(), 1);
        const QJsonArray sentHabits = lastPut(m_server, QStringLiteral("/api/v1/habits")).toArray();
        QCOMPARE(sentHabits.size(), 1);
        QCOMPARE(sentHabits[0][u"currentValue"].toInt(), 2);
        QCOMPARE(sentHabits[0][u"maxValue"].toInt(), 3);

        // Midnight: today's count goes to history, the timer's counters to zero.
        DailyResetService::shared().scheduleNext();
        m_now = QDateTime(QDate(2026, 6, 11), QTime(0, 0, 6));
        DailyResetService::shared().fireIfDue();
        QCOMPARE(water->currentValue(), qint64(0));
        QCOMPARE(timer->pomodoroTotalCount(), qint64(0));
        QCOMPARE(water->history().size(), 1);
        QCOMPARE(water->history()[0]->date(), QStringLiteral("2026-06-10"));
        QCOMPARE(water->history()[0]->value(), qint64(2));

        // A pull from another device replaces habits and lists; history stays with Water.
        m_server.on(
            "GET", QStringLiteral("/api/v1/habits"),
            FakeSyncServer::Response::json(
                200,
                R"({"data":[{"icon":"1F4A7","name":"Water","color":"#38BDF8",)"
                R"("maxValue":4,"currentValue":1,"firstTrackerDate":"2026-06-10T22:30:00Z"}]})"));
        m_server.on("GET", QStringLiteral("/api/v1/tasks"),
                    FakeSyncServer::Response::json(
                        200, R"({"data":[{"name":"Errands","highlightedTask":0,"tasks":[)"
                             R"({"header":"Post the letter","checked":false,"subtasks":[]}]}]})"));
        const int putsBefore =
            int(m_server.requestsFor("PUT", QStringLiteral("/api/v1/habits")).size());
        QCoro::waitFor(SyncEngine::shared().pullAll());
        QCOMPARE(SyncEngine::shared().lastError(), QString());
        QVERIFY(context().save());

        const QList<Habit*> pulled = context().fetch<Habit>();
        QCOMPARE(pulled.size(), 1);
        QCOMPARE(pulled[0]->maxValue(), qint64(4));
        QCOMPARE(pulled[0]->currentValue(), qint64(1));
        QCOMPARE(pulled[0]->history().size(), 1);
        QCOMPARE(pulled[0]->history()[0]->value(), qint64(2));
        const QList<TaskList*> lists = context().fetch<TaskList>();
        QCOMPARE(lists.size(), 1);
        QCOMPARE(lists[0]->name(), QStringLiteral("Errands"));
        const QList<TaskItem*> listTasks = TasksService::sortedTasks(lists[0]);
        QCOMPARE(listTasks.size(), 1);
        QCOMPARE(lists[0]->highlightedTaskId(), listTasks[0]->id());
        // Applying the pull did not echo it back.
        QTest::qWait(HabitsService::SaveDelayMs + 200);
        QCOMPARE(m_server.requestsFor("PUT", QStringLiteral("/api/v1/habits")).size(), putsBefore);
    }
};

QTEST_GUILESS_MAIN(TestDayScenario)
#include "tst_dayscenario.moc"
