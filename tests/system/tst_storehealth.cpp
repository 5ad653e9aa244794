#include "DataStore.h"
#include "Habit.h"
#include "StoreHealth.h"

#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

class TestStoreHealth final : public QObject
{
    Q_OBJECT

    // Runs `sql` on the store file through a connection of its own.
    static void behind(const QString& path, const QString& sql)
    {
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), path);
            db.setDatabaseName(path);
            QVERIFY(db.open());
            QVERIFY2(QSqlQuery(db).exec(sql), qPrintable(sql));
        }
        QSqlDatabase::removeDatabase(path);
    }

private slots:
    // A store that stops taking writes is announced once, shown until a save gets
    // through, and nothing typed meanwhile is dropped.
    void failedSavesAreToldUntilOneSucceeds()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("store.sqlite"));
        auto store = DataStore::open(path, nullptr);
        QVERIFY(store);
        ModelContext& context = store->mainContext();
        StoreHealth health(context);
        QSignalSpy announced(&health, &StoreHealth::announced);

        behind(path, QStringLiteral("CREATE TRIGGER full BEFORE INSERT ON habit "
                                    "BEGIN SELECT RAISE(ABORT, 'database or disk is full'); END"));
        auto* water = new Habit(QStringLiteral("💧"), QStringLiteral("Water"),
                                QStringLiteral("#3B82F6"), 8, 0);
        context.insert(water);
        QVERIFY(!context.save());
        QVERIFY(!context.save());
        QCOMPARE(announced.count(), 1);
        QVERIFY(announced.first().at(1).toString().contains(u"database or disk is full"));
        QVERIFY(health.problem().contains(u"could not be saved: "));
        QVERIFY(context.hasChanges());

        behind(path, QStringLiteral("DROP TRIGGER full"));
        QVERIFY(context.save());
        QCOMPARE(health.problem(), QString());
        store.reset();
        QCOMPARE(DataStore::open(path, nullptr)->mainContext().count<Habit>(), 1);

        // A new run of failures is announced again.
        auto again = DataStore::open(path, nullptr);
        StoreHealth later(again->mainContext());
        QSignalSpy told(&later, &StoreHealth::announced);
        behind(path, QStringLiteral("CREATE TRIGGER full BEFORE UPDATE ON habit "
                                    "BEGIN SELECT RAISE(ABORT, 'disk I/O error'); END"));
        again->mainContext().fetch<Habit>().first()->setName(QStringLiteral("Tea"));
        QVERIFY(!again->mainContext().save());
        QCOMPARE(told.count(), 1);
    }
};

QTEST_GUILESS_MAIN(TestStoreHealth)
#include "tst_storehealth.moc"
