// A long day in one process: 100,000 habit counts, 10,000 task edits and 2,000
// timer phases through the services, on a store file, with the clock injected.
// Prints how much the process and the store grew; fails on a leaked descriptor or,
// outside the sanitizers (whose allocator keeps freed memory), on more than 2 MB of
// resident growth. LeakSanitizer checks the rest when the suite runs under it.
#include "AudioService.h"
#include "DataStore.h"
#include "Habit.h"
#include "HabitsService.h"
#include "ManualClock.h"
#include "PomodoroService.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "TasksService.h"
#include "TestServices.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <malloc.h>

namespace {

qint64 residentKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

qsizetype openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd"))
        .entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot)
        .size();
}

int envCount(const char* name, int fallback)
{
    bool ok = false;
    const int value = qEnvironmentVariableIntValue(name, &ok);
    return ok && value > 0 ? value : fallback;
}

} // namespace

class TestSoak final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    ManualClock m_time{QDateTime(QDate(2026, 3, 2), QTime(6, 0))};
    std::unique_ptr<AppServices> m_services;
    QList<Habit*> m_habits;
    TaskList* m_list = nullptr;

    ModelContext& context() { return m_services->store().mainContext(); }
    QString storePath() const { return m_dir.filePath(QStringLiteral("store.sqlite")); }
    qint64 storeBytes() const
    {
        qint64 total = 0;
        for (const char* suffix : {"", "-wal", "-shm"})
            total += QFileInfo(storePath() + QLatin1String(suffix)).size();
        return total;
    }

    // Lets the debounced saves and any queued work run, and what was left for
    // deletion go, as the event loop does between a person's clicks.
    static void settleEvents()
    {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void countHabits(int n)
    {
        for (int i = 0; i < n; ++i) {
            m_services->habits().countOrReset(m_habits[i % m_habits.size()], context());
            if (i % 100 == 99) {
                m_time.now = m_time.now.addSecs(600); // days turn over now and then
                settleEvents();
            }
        }
    }

    void editTasks(int n)
    {
        TasksService& tasks = m_services->tasks();
        QList<TaskItem*> open;
        for (int i = 0; i < n; ++i) {
            switch (i % 5) {
            case 0:
                open.append(tasks.addTask(u"Task " + QString::number(i), m_list, context()));
                break;
            case 1:
                tasks.editTask(open.last(), u"Edited task " + QString::number(i), context());
                break;
            case 2:
                tasks.highlight(open.last(), m_list, context());
                break;
            case 3:
                tasks.toggleCheck(open.last(), context());
                break;
            default: // the list stays short, as a person's does
                if (open.size() > 20)
                    tasks.deleteTask(open.takeFirst(), context());
                break;
            }
            if (i % 50 == 49)
                settleEvents();
        }
    }

    void runPhases(int n)
    {
        PomodoroService& timer = m_services->timer();
        for (int i = 0; i < n; ++i) {
            timer.start();
            m_time.now = m_time.now.addMSecs(timer.remainingMs() + 1);
            timer.didBecomeActive();
            settleEvents();
        }
    }

private slots:
    void initTestCase()
    {
        AppServices::Parts parts = testParts(storePath());
        parts.clock = m_time.source();
        m_services = std::make_unique<AppServices>(std::move(parts));
        m_services->audio().setMuted(true);
        m_services->habits().bootstrap();
        m_services->tasks().bootstrap();
        m_services->timer().bootstrap();
        // The keychain's thread starts with the first push; start it now, so that
        // the soak counts only what grows.
        m_services->auth().load();
        settle(*m_services);
        for (int i = 0; i < 5; ++i)
            m_habits.append(m_services->habits().createHabit(
                QStringLiteral("💧"), u"Habit " + QString::number(i), QStringLiteral("#0A84FF"), 8,
                context()));
        m_list = TasksService::listsInOrder(context()).first();
    }

    void cleanupTestCase()
    {
        settle(*m_services);
        m_services.reset();
    }

    void longDayLeavesNothingBehind()
    {
        const int counts = envCount("TIDEWELL_SOAK_COUNTS", 100'000);
        const int edits = envCount("TIDEWELL_SOAK_EDITS", 10'000);
        const int phases = envCount("TIDEWELL_SOAK_PHASES", 2'000);

        // A first round of each, across a midnight, warms caches and the store's
        // pages and starts whatever starts once.
        countHabits(counts / 20);
        editTasks(edits / 20);
        runPhases(phases / 20);
        m_time.now = m_time.now.addDays(1);
        countHabits(100);
        runPhases(4);
        QVERIFY(context().save());
        malloc_trim(0);
        const qint64 rssBefore = residentKb();
        const qsizetype fdsBefore = openDescriptors();
        const qint64 storeBefore = storeBytes();

        countHabits(counts);
        editTasks(edits);
        runPhases(phases);
        QVERIFY(context().save());
        malloc_trim(0);
        const qint64 rssGrowth = residentKb() - rssBefore;
        const qsizetype fdGrowth = openDescriptors() - fdsBefore;
        const qint64 storeGrowth = storeBytes() - storeBefore;

        std::printf("soak habit_counts %d task_edits %d timer_phases %d\n", counts, edits, phases);
        std::printf("soak rss_growth_kb %lld\n", static_cast<long long>(rssGrowth));
        std::printf("soak fd_growth %lld\n", static_cast<long long>(fdGrowth));
        std::printf("soak store_growth_kb %lld\n", static_cast<long long>(storeGrowth / 1024));
        std::fflush(stdout);

        QCOMPARE(fdGrowth, 0);
#if !defined(__SANITIZE_ADDRESS__)
        QVERIFY2(rssGrowth <= 2048, qPrintable(u"grew by " + QString::number(rssGrowth) + u" kB"));
#endif
    }
};

QTEST_MAIN(TestSoak)
#include "tst_soak.moc"
