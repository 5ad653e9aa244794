#include "Clock.h"
#include "DataStore.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "ManualClock.h"
#include "StoreBackups.h"
#include "StoreCheck.h"
#include "StoreConnection.h"
#include "StoreHealth.h"
#include "StoreRestore.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <sqlite3.h>

namespace {
const QDateTime start(QDate(2026, 11, 25), QTime(9, 0));

// A store with one habit and `days` of its history, written and closed (so that
// everything sits in the main file, none in the log).
void writeStore(const QString& path, int days, const QString& habitName = QStringLiteral("Water"))
{
    QString error;
    auto store = DataStore::open(path, &error);
    QVERIFY2(store, qPrintable(error));
    auto* habit = new Habit(QStringLiteral("💧"), habitName, QStringLiteral("#3B82F6"), 8, 0);
    store->mainContext().insert(habit);
    QVERIFY(store->mainContext().save());
    StoreConnection& db = store->connection();
    QVERIFY(db.begin(nullptr));
    const QDate first(2016, 1, 1);
    for (int d = 0; d < days; ++d) {
        QString error;
        QVERIFY2(db.exec(QStringLiteral("INSERT INTO habit_history VALUES (?, ?, ?, 8, 0, ?)"),
                         {QStringLiteral("00000000-0000-4000-8000-%1").arg(d, 12, 10, QChar(u'0')),
                          first.addDays(d).toString(Qt::ISODate), d % 9, habit->key()},
                         nullptr, &error),
                 qPrintable(error));
    }
    QVERIFY(db.commit(nullptr));
}

// Bytes read through system calls by this process so far.
qint64 bytesRead()
{
    QFile io(QStringLiteral("/proc/self/io"));
    if (!io.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : io.readAll().split('\n')) {
        if (line.startsWith("rchar:"))
            return line.mid(6).trimmed().toLongLong();
    }
    return -1;
}

// Pages SQLite had to read from the file on the store's own connection.
int cacheMisses(DataStore& store)
{
    sqlite3* db = store.connection().handle();
    int current = 0, highest = 0;
    sqlite3_db_status(db, SQLITE_DBSTATUS_CACHE_MISS, &current, &highest, 0);
    return current;
}

QByteArray digest(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly)
               ? QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256)
               : QByteArray();
}

// Overwrites a page in the middle of the file, as a failing disk would.
// A run of pages in the middle: some of the table's, whatever the layout of the
// indexes between them.
void damageMiddle(const QString& path)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    file.seek(file.size() / 2 / 4096 * 4096);
    file.write(QByteArray(8 * 4096, '\x5a'));
}

int habitsIn(const QString& path)
{
    return StoreBackups::describe(path).habits;
}
} // namespace

class TestStoreSafety final : public QObject
{
    Q_OBJECT

private slots:
    void openReadsNoMoreOfALargeStoreThanOfASmallOne()
    {
        if (bytesRead() < 0)
            QSKIP("needs /proc/self/io");
        QTemporaryDir dir;
        const QString small = dir.filePath(QStringLiteral("small.sqlite"));
        const QString large = dir.filePath(QStringLiteral("large.sqlite"));
        const QString warm = dir.filePath(QStringLiteral("warm.sqlite"));
        writeStore(small, 10);
        writeStore(warm, 10);
        writeStore(large, 40000);
        QVERIFY(QFileInfo(large).size() > 4 * 1024 * 1024);

        const auto open = [](const QString& path, qint64* read, int* misses) {
            QString error;
            const qint64 before = bytesRead();
            auto store = DataStore::open(path, &error);
            *read = bytesRead() - before;
            QVERIFY2(store, qPrintable(error));
            *misses = cacheMisses(*store);
        };
        qint64 readSmall = 0, readLarge = 0, ignored = 0;
        int missesSmall = 0, missesLarge = 0, ignoredMisses = 0;
        open(warm, &ignored, &ignoredMisses); // the SQL driver loads once
        open(small, &readSmall, &missesSmall);
        open(large, &readLarge, &missesLarge);
        // A check of the whole file would read megabytes more; the header, the schema
        // and the lock cost the same on both.
        QVERIFY2(readLarge - readSmall < 64 * 1024,
                 qPrintable(QStringLiteral("%1 vs %2 bytes").arg(readLarge).arg(readSmall)));
        QVERIFY2(missesLarge <= missesSmall + 2,
                 qPrintable(QStringLiteral("%1 vs %2 pages").arg(missesLarge).arg(missesSmall)));
    }

    void fullCheckRunsDailyAndAfterAnUncleanExit()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("store.sqlite"));
        writeStore(path, 30);
        ManualClock hand(start);
        const auto runUntilFinished = [](StoreCheck& check) {
            QSignalSpy finished(&check, &StoreCheck::finished);
            check.runIfDue();
            if (check.isRunning() && !finished.wait(10000))
                return -1;
            return int(finished.count());
        };
        const StoreBackups backups(StoreBackups::folderFor(path));

        {
            StoreCheck check(path, hand.clock());
            check.begin();
            QVERIFY(!check.uncleanStart());
            QVERIFY(check.isDue()); // never checked
            QSignalSpy passed(&check, &StoreCheck::passed);
            QCOMPARE(runUntilFinished(check), 1);
            QCOMPARE(passed.count(), 1);
            QCOMPARE(check.lastPassed(), QDate(2026, 11, 25));
            QVERIFY(backups.has(QDate(2026, 11, 25)));
            QCOMPARE(runUntilFinished(check), 0); // once a day
            check.end();
        }
        {
            // A clean restart the same day: nothing to do; the next day: due again.
            StoreCheck check(path, hand.clock());
            check.begin();
            QVERIFY(!check.isDue());
            hand.now = hand.now.addDays(1);
            QVERIFY(check.isDue());
            QCOMPARE(runUntilFinished(check), 1);
            QVERIFY(backups.has(QDate(2026, 11, 26)));
            // No end(): the process dies.
        }
        {
            StoreCheck check(path, hand.clock());
            check.begin();
            QVERIFY(check.uncleanStart());
            QVERIFY(check.isDue()); // checked today already, but the last run crashed
            QSignalSpy backupWritten(&check, &StoreCheck::backupWritten);
            QCOMPARE(runUntilFinished(check), 1);
            QCOMPARE(backupWritten.count(), 0); // today's copy exists
            QVERIFY(!check.isDue());
            check.end();
        }
    }

    void backupsKeepAWeekAndTheFirstOfSixMonths()
    {
        QList<QDate> days;
        for (QDate d(2026, 4, 20); d <= QDate(2026, 11, 26); d = d.addDays(1))
            days.append(d);
        days.removeAll(QDate(2026, 8, 1)); // a day the computer was off
        const QList<QDate> kept = StoreBackups::kept(days, QDate(2026, 11, 26));
        QList<QDate> expected;
        for (QDate d(2026, 11, 26); d >= QDate(2026, 11, 20); d = d.addDays(-1))
            expected.append(d);
        expected << QDate(2026, 11, 1) << QDate(2026, 10, 1) << QDate(2026, 9, 1)
                 << QDate(2026, 8, 2) << QDate(2026, 7, 1) << QDate(2026, 6, 1);
        QCOMPARE(kept, expected);

        // Across the year's end, on files.
        QTemporaryDir dir;
        const QString store = dir.filePath(QStringLiteral("store.sqlite"));
        writeStore(store, 3);
        const StoreBackups backups(StoreBackups::folderFor(store));
        const QList<QDate> written{QDate(2026, 7, 14),  QDate(2026, 8, 14), QDate(2026, 12, 30),
                                   QDate(2026, 12, 31), QDate(2027, 1, 1),  QDate(2027, 1, 2),
                                   QDate(2027, 1, 3),   QDate(2027, 1, 4),  QDate(2027, 1, 5),
                                   QDate(2027, 1, 6),   QDate(2027, 1, 7)};
        QString error;
        for (QDate d : written)
            QVERIFY2(backups.write(store, d, &error), qPrintable(error));
        QFile leftover(backups.pathFor(QDate(2027, 1, 8)) + QStringLiteral(".partial"));
        QVERIFY(leftover.open(QIODevice::WriteOnly));
        leftover.close();
        // Files that only look like backups are neither listed nor rotated away.
        const QStringList lookalikes{QStringLiteral("store-2027-1-09.sqlite"),
                                     QStringLiteral("store-2027-02-30.sqlite"),
                                     QStringLiteral("store-2027-01-0x.sqlite"),
                                     QStringLiteral("store-2026-07-14.sqlite.bak"),
                                     QStringLiteral("store-\u0662027-01-09.sqlite")};
        for (const QString& name : lookalikes)
            QVERIFY(QFile::copy(backups.pathFor(QDate(2026, 7, 14)),
                                StoreBackups::folderFor(store) + u'/' + name));
        backups.rotate(QDate(2027, 1, 7));
        for (const QString& name : lookalikes)
            QVERIFY2(QFileInfo::exists(StoreBackups::folderFor(store) + u'/' + name),
                     qPrintable(name));
        QList<QDate> listed;
        for (const StoreBackups::Entry& entry : backups.list())
            listed.append(entry.day);
        // 1-7 January, and the first copy of each month back to August: July is the
        // seventh month back.
        QCOMPARE(listed,
                 (QList<QDate>{QDate(2027, 1, 7), QDate(2027, 1, 6), QDate(2027, 1, 5),
                               QDate(2027, 1, 4), QDate(2027, 1, 3), QDate(2027, 1, 2),
                               QDate(2027, 1, 1), QDate(2026, 12, 30), QDate(2026, 8, 14)}));
        QVERIFY(!leftover.exists());
        QCOMPARE(backups.list().first().habits, 1);
        QCOMPARE(backups.list().first().focusSessions, 0);
    }

    void aCopyThatFailsItsCheckIsNeverKept()
    {
        QTemporaryDir dir;
        const QString store = dir.filePath(QStringLiteral("store.sqlite"));
        writeStore(store, 20000);
        damageMiddle(store);
        const StoreBackups backups(StoreBackups::folderFor(store));
        QString error;
        QVERIFY(!backups.write(store, QDate(2026, 11, 25), &error));
        QVERIFY(!error.isEmpty());
        QVERIFY(QDir(backups.folder()).entryList(QDir::Files | QDir::Hidden).isEmpty());
    }

    void damageAfterStartStopsWritesAndTheBackupHoldsWhatWasSaved()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("store.sqlite"));
        writeStore(path, 20000);
        ManualClock hand(start);
        QString error;
        auto store = DataStore::open(path, &error);
        QVERIFY2(store, qPrintable(error));
        ModelContext& context = store->mainContext();
        StoreHealth health(context);
        QSignalSpy announced(&health, &StoreHealth::announced);
        StoreCheck check(path, hand.clock());
        QObject::connect(&check, &StoreCheck::damaged, &context, &ModelContext::markDamaged);
        context.insert(new Habit(QStringLiteral("☕"), QStringLiteral("Coffee"),
                                 QStringLiteral("#000000"), 3, 0));
        QVERIFY(context.save());
        QSignalSpy finished(&check, &StoreCheck::finished);
        check.run(); // the day's check and backup, after the save
        QVERIFY(finished.wait(10000));
        const QString backup = StoreBackups(StoreBackups::folderFor(path)).pathFor(hand.now.date());
        QCOMPARE(habitsIn(backup), 2);

        // The disk fails under the running app; reading history meets the damage.
        damageMiddle(path);
        context.fetch<HabitHistory>();
        QVERIFY(!context.damage().isEmpty());
        QVERIFY(health.problem().contains(u"damaged"));
        QCOMPARE(announced.count(), 1);

        // Nothing more is written to the file; the user is told once.
        const QByteArray before = digest(path);
        context.find<Habit>(context.fetch<Habit>().first()->key())->setName(QStringLiteral("Tea"));
        QVERIFY(!context.save(&error));
        QVERIFY(error.contains(u"damaged"));
        QCOMPARE(digest(path), before);
        QCOMPARE(announced.count(), 1);
        QCOMPARE(habitsIn(backup), 2);

        // The full check finds it too, on a store whose statements have not.
        QTemporaryDir otherDir;
        const QString other = otherDir.filePath(QStringLiteral("store.sqlite"));
        writeStore(other, 20000);
        damageMiddle(other);
        StoreCheck second(other, hand.clock());
        QSignalSpy damaged(&second, &StoreCheck::damaged);
        second.run();
        QVERIFY(damaged.wait(10000));
        QVERIFY(!StoreBackups(StoreBackups::folderFor(other)).has(hand.now.date()));
    }

    void restoreReplacesTheStoreAndKeepsTheOldOne()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("store.sqlite"));
        writeStore(path, 5);
        const StoreBackups backups(StoreBackups::folderFor(path));
        QString error;
        QVERIFY2(backups.write(path, QDate(2026, 11, 24), &error), qPrintable(error));
        {
            auto store = DataStore::open(path, &error);
            QVERIFY(store);
            store->mainContext().insert(new Habit(QStringLiteral("☕"), QStringLiteral("Coffee"),
                                                  QStringLiteral("#000000"), 3, 0));
            QVERIFY(store->mainContext().save());
        }
        const QByteArray current = digest(path);

        // Files that are not a store this version can use change nothing.
        const QString text = dir.filePath(QStringLiteral("notes.sqlite"));
        QFile notes(text);
        QVERIFY(notes.open(QIODevice::WriteOnly));
        notes.write(QByteArray("not a database at all").repeated(300));
        notes.close();
        const QString newer = dir.filePath(QStringLiteral("newer.sqlite"));
        QVERIFY(QFile::copy(backups.pathFor(QDate(2026, 11, 24)), newer));
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), newer);
            db.setDatabaseName(newer);
            QVERIFY(db.open());
            QVERIFY(QSqlQuery(db).exec(QStringLiteral("PRAGMA user_version = 99")));
        }
        QSqlDatabase::removeDatabase(newer);
        QString aside;
        for (const QString& bad : {text, newer, dir.filePath(QStringLiteral("missing.sqlite"))}) {
            QVERIFY(!StoreRestore::replace(path, bad, false, QDateTime::currentDateTime(), &aside,
                                           &error));
            QVERIFY(error.startsWith(bad));
            QCOMPARE(digest(path), current);
        }
        QCOMPARE(QDir(dir.path()).entryList({QStringLiteral("store*")}, QDir::Files),
                 QStringList{QStringLiteral("store.sqlite")});

        const QDateTime when(QDate(2026, 11, 25), QTime(10, 30, 5));
        QVERIFY2(StoreRestore::replace(path, backups.pathFor(QDate(2026, 11, 24)), false, when,
                                       &aside, &error),
                 qPrintable(error));
        QCOMPARE(aside,
                 dir.filePath(QStringLiteral("store-before-restore-20261125-103005.sqlite")));
        QCOMPARE(digest(aside), current);
        QCOMPARE(habitsIn(path), 1);
        QVERIFY(QFileInfo::exists(backups.pathFor(QDate(2026, 11, 24)))); // the backup stays
        auto restored = DataStore::open(path, &error);
        QVERIFY2(restored, qPrintable(error));
        QCOMPARE(restored->mainContext().fetch<Habit>().size(), 1);

        StoreRestore::leaveNote(path, {QStringLiteral("24 November 2026"), aside});
        QCOMPARE(StoreRestore::takeNote(path).aside, aside);
        QVERIFY(StoreRestore::takeNote(path).restored.isEmpty()); // told once
    }
};

QTEST_GUILESS_MAIN(TestStoreSafety)
#include "tst_storesafety.moc"
