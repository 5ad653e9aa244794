#include "Accounts.h"
#include "AuthService.h"
#include "DataStore.h"
#include "Habit.h"
#include "HabitsService.h"
#include "ModelContext.h"
#include "Preferences.h"
#include "ResourceStore.h"
#include "SyncEngine.h"
#include "SyncServer.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "TestDatabase.h"
#include "TestServices.h"

#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QDateTime now()
{
    return QDateTime(QDate(2026, 11, 24), QTime(10, 0));
}

// One computer: the app's services over a store of its own, signed in with `token`.
class Computer
{
public:
    explicit Computer(const QString& token)
    {
        auto keychain = std::make_shared<FakeKeychain>();
        keychain->stored = token.toUtf8();
        AppServices::Parts parts = testParts();
        parts.clock = now;
        parts.keychain = keychain;
        services = std::make_unique<AppServices>(std::move(parts));
        sync().setRetryDelays(50ms, 400ms);
        services->auth().reload();
    }
    ~Computer() { settle(*services); }

    SyncEngine& sync() { return services->sync(); }
    ModelContext& context() { return services->store().mainContext(); }
    Habit* habit(const QString& name) { return HabitsService::findByName(name, context()); }
    qint64 count(const QString& name)
    {
        Habit* h = habit(name);
        return h ? h->currentValue() : -1;
    }
    void increment(const QString& name, int times = 1)
    {
        for (int i = 0; i < times; ++i)
            services->habits().increment(habit(name), context());
    }
    bool pull()
    {
        QCoro::waitFor(sync().pullAll());
        return sync().lastError().isEmpty();
    }

    std::unique_ptr<AppServices> services;
};

} // namespace

// Two apps on one account of the real server, over real sockets: what one
// counts reaches the other without a Sync, and no count is lost to a race or
// to the server being away.
class TestTwoComputers final : public QObject
{
    Q_OBJECT

    TestDatabase m_db;
    std::unique_ptr<SyncServer> m_server;
    quint16 m_port = 0;
    QString m_token;

    bool startServer()
    {
        SyncServer::Options options;
        options.database.url = m_db.url();
        options.port = m_port;
        QString error;
        m_server = SyncServer::create(options, &error);
        if (!m_server || !m_server->listen(&error)) {
            qWarning("server: %s", qPrintable(error));
            return false;
        }
        m_port = m_server->port();
        Preferences::setServerURLOverride(u"http://127.0.0.1:%1"_s.arg(m_port));
        return true;
    }

    qint64 habitsVersion()
    {
        QString error;
        return m_server->resources()
            .currentVersion(m_server->accounts().user(u"ann"_s)->id, ResourceStore::Kind::Habits,
                            &error)
            .value_or(-1);
    }

    void stopServer()
    {
        QSignalSpy stopped(m_server.get(), &SyncServer::stopped);
        m_server->shutdown();
        QVERIFY(stopped.wait(5000));
        m_server.reset();
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY2(m_db.problem().isEmpty(), qPrintable(m_db.problem()));
        QVERIFY(startServer());
        QString error;
        Accounts& accounts = m_server->accounts();
        QVERIFY(accounts.addUser(u"ann"_s, u"correct horse"_s, &error));
        m_token = accounts.createToken(accounts.user(u"ann"_s)->id, u"test"_s, &error)
                      .value_or(QString());
        QVERIFY(!m_token.isEmpty());
        Preferences::setAccountExists(true);
    }

    void countsOnBothComputersAdd()
    {
        Computer laptop(m_token);
        Computer desktop(m_token);
        QVERIFY(laptop.pull());
        QVERIFY(laptop.sync().serverHasVersions());
        laptop.services->habits().createHabit(u"💧"_s, u"Water"_s, u"#3B82F6"_s, 8,
                                              laptop.context());
        QVERIFY(desktop.pull());
        QTRY_COMPARE_WITH_TIMEOUT(habitsVersion(), 1, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(desktop.count(u"Water"_s), 0, 5000);

        // Counted on both within the same moment: both pushes are made on one
        // version, one of them is refused and merged.
        const QString waterKey = desktop.habit(u"Water"_s)->key();
        laptop.increment(u"Water"_s);
        desktop.increment(u"Water"_s, 2);
        QTRY_COMPARE_WITH_TIMEOUT(laptop.count(u"Water"_s), 3, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(desktop.count(u"Water"_s), 3, 5000);
        QVERIFY(laptop.sync().lastError().isEmpty());
        QVERIFY(desktop.sync().lastError().isEmpty());
        // What the user has open is the same record after the merge and pulls.
        QCOMPARE(desktop.habit(u"Water"_s)->key(), waterKey);

        // The server away for a while: both keep counting, and once it is back
        // both send what they counted and end with the sum.
        stopServer();
        laptop.increment(u"Water"_s);
        desktop.increment(u"Water"_s);
        QTRY_VERIFY_WITH_TIMEOUT(!laptop.sync().lastError().isEmpty(), 5000);
        QVERIFY(startServer());
        QTRY_COMPARE_WITH_TIMEOUT(laptop.count(u"Water"_s), 5, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(desktop.count(u"Water"_s), 5, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(laptop.sync().lastError().isEmpty(), 5000);

        // A list changed on the other computer arrives as the same list and the
        // same focus task here, with the new task in it.
        auto* home = new TaskList(u"Home"_s, 0);
        laptop.context().insert(home);
        auto* milk = new TaskItem(u"Milk"_s, 0, home);
        laptop.context().insert(milk);
        home->setHighlightedTaskId(milk->id());
        QVERIFY(laptop.context().save());
        QCoro::waitFor(laptop.sync().pushTasks());
        QTRY_COMPARE_WITH_TIMEOUT(desktop.context().fetch<TaskItem>().size(), 1, 5000);
        const QList<TaskList*> lists = desktop.context().fetch<TaskList>();
        QCOMPARE(lists.size(), 1);
        const QUuid listId = lists.front()->id();
        const QUuid focusId = lists.front()->highlightedTaskId();
        QVERIFY(!focusId.isNull());
        laptop.context().insert(new TaskItem(u"Bread"_s, 1, home));
        QVERIFY(laptop.context().save());
        QCoro::waitFor(laptop.sync().pushTasks());
        QTRY_COMPARE_WITH_TIMEOUT(desktop.context().fetch<TaskItem>().size(), 2, 5000);
        QCOMPARE(desktop.context().fetch<TaskList>().front()->id(), listId);
        QCOMPARE(desktop.context().fetch<TaskList>().front()->highlightedTaskId(), focusId);

        // A later computer signing in takes the server's copy as it stands.
        Computer third(m_token);
        QVERIFY(third.pull());
        QCOMPARE(third.count(u"Water"_s), 5);

        // A computer signed in before it knew of versions learns of them from the
        // answer to its next push, and offers to stay in step from then on.
        Computer fourth(m_token);
        QTRY_VERIFY(!fourth.services->auth().isLoading());
        QVERIFY(!fourth.sync().serverHasVersions());
        QCoro::waitFor(fourth.sync().pushPomodoro());
        QCoro::waitFor(fourth.sync().pushHabits());
        QVERIFY(fourth.sync().serverHasVersions());
        QVERIFY(fourth.sync().keepsInStep());
    }
};

QTEST_MAIN(TestTwoComputers)
#include "tst_twocomputers.moc"
