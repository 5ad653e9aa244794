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
#include "PomodoroService.h"
#include "Preferences.h"
#include "TaskList.h"
#include "TasksService.h"

#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

// One day across the three services sharing one store, one midnight and one sync
// server: each must push through the shared session, and they must roll over
// together, the timer's fresh counts reaching the server too.
class TestDayScenario final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QDateTime m_now{QDate(2026, 6, 10), QTime(9, 0)};
    FakeSyncServer m_server;

    static ModelContext& context() { return DataStore::shared().mainContext(); }

    QByteArray lastPut(const char* resource) const
    {
        const auto all = m_server.requestsFor("PUT", u"/api/v1/" + QLatin1String(resource));
        return all.isEmpty() ? QByteArray() : all.last().body;
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        Clock::setSource([this] { return m_now; });
        QString error;
        DataStore::setShared(
            DataStore::open(m_dir.filePath(QStringLiteral("store.sqlite")), &error));
        QVERIFY2(error.isEmpty(), qPrintable(error));
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

        // Morning: a task checked off, a habit counted twice, a focus phase finished.
        TaskList* list = context().fetch<TaskList>().first();
        tasks.toggleCheck(tasks.addTask(QStringLiteral("Buy milk"), list, context()), context());
        Habit* water = habits.createHabit(QStringLiteral("💧"), QStringLiteral("Water"),
                                          QStringLiteral("#38BDF8"), 3, context());
        habits.increment(water, context());
        habits.increment(water, context());
        timer->start();
        m_now = m_now.addSecs(25 * 60);
        timer->didBecomeActive();
        QTRY_VERIFY(lastPut("tasks").contains(R"({"checked":true,"header":"Buy milk")"));
        QTRY_VERIFY(lastPut("habits").contains(R"("currentValue":2)"));
        QTRY_VERIFY(lastPut("pomodoro").contains(R"("pomodoroTotalCount":"1")"));
        for (const FakeSyncServer::Request& r : m_server.requests())
            QCOMPARE(r.header("Authorization"), QByteArrayLiteral("Bearer day-token"));

        // Midnight: today's count goes to history, the timer's counters to zero, and
        // the server hears of the latter.
        DailyResetService::shared().scheduleNext();
        m_now = QDateTime(QDate(2026, 6, 11), QTime(0, 0, 6));
        DailyResetService::shared().fireIfDue();
        QCOMPARE(water->currentValue(), qint64(0));
        QCOMPARE(water->history().size(), 1);
        QCOMPARE(water->history()[0]->value(), qint64(2));
        QTRY_VERIFY(lastPut("pomodoro").contains(R"("pomodoroTotalCount":"0")"));
    }
};

QTEST_GUILESS_MAIN(TestDayScenario)
#include "tst_dayscenario.moc"
