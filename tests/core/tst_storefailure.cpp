#include "DataStore.h"
#include "Habit.h"
#include "TaskList.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <unistd.h>

using MakeStore = std::function<void(const QString& path)>;
Q_DECLARE_METATYPE(MakeStore)

namespace {
// A small store written by Tidewell itself.
void writeOurs(const QString& path)
{
    QString error;
    auto store = DataStore::open(path, &error);
    QVERIFY2(store, qPrintable(error));
    for (int i = 0; i < 400; ++i)
        store->mainContext().insert(new TaskList(QStringLiteral("List %1").arg(i), i));
    store->mainContext().insert(
        new Habit(QStringLiteral("💧"), QStringLiteral("Water"), QStringLiteral("#3B82F6"), 8, 0));
    QVERIFY(store->mainContext().save());
}

// A SQLite file made by another program.
void writeForeign(const QString& path, const QStringList& statements)
{
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), path);
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QSqlQuery query(db);
        for (const QString& sql : statements)
            QVERIFY2(query.exec(sql), qPrintable(sql));
    }
    QSqlDatabase::removeDatabase(path);
}

QByteArray digest(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly)
               ? QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256)
               : QByteArray();
}
} // namespace

class TestStoreFailure final : public QObject
{
    Q_OBJECT

private slots:
    // Each store is one the app can open but could not use; it must refuse to start,
    // say why on one line, and leave the file exactly as it was.
    void unusableStoreEndsStartupUntouched_data()
    {
        QTest::addColumn<MakeStore>("make");
        QTest::addColumn<QString>("reason");

        QTest::newRow("not a database") << MakeStore([](const QString& path) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(QByteArray("\x93\0not a database\x07", 17).repeated(482));
        }) << QStringLiteral("not a database");
        QTest::newRow("another program's tables") << MakeStore([](const QString& path) {
            writeForeign(path, {QStringLiteral("CREATE TABLE notes (body TEXT)"),
                                QStringLiteral("INSERT INTO notes VALUES ('keep me')")});
        }) << QStringLiteral("another program");
        QTest::newRow("foreign tables claiming our version") << MakeStore([](const QString& path) {
            writeForeign(path, {QStringLiteral("CREATE TABLE habit (id TEXT, title TEXT)"),
                                QStringLiteral("CREATE TABLE task_list (id TEXT)"),
                                QStringLiteral("PRAGMA user_version = 1")});
        }) << QStringLiteral("not written by Tidewell");
        QTest::newRow("newer version") << MakeStore([](const QString& path) {
            writeOurs(path);
            writeForeign(path, {QStringLiteral("PRAGMA user_version = 99")});
        }) << QStringLiteral("newer version");
        QTest::newRow("damaged") << MakeStore([](const QString& path) {
            writeOurs(path);
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadWrite));
            // The first page after the file header, where the tables are described:
            // damage found by the cheap checks at open. (Damage further in is found
            // later, by the full check.)
            file.seek(100);
            file.write(QByteArray(4096 - 100, '\x5a'));
        }) << QStringLiteral("damaged");
        QTest::newRow("read-only") << MakeStore([](const QString& path) {
            writeOurs(path);
            // Root writes through file modes; an immutable file stops even root.
            if (::geteuid() == 0)
                QCOMPARE(QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("+i"), path}),
                         0);
            else
                QVERIFY(QFile::setPermissions(path, QFile::ReadOwner));
        }) << QStringLiteral("read-only");
    }

    void unusableStoreEndsStartupUntouched()
    {
        QFETCH(MakeStore, make);
        QFETCH(QString, reason);
        QTemporaryDir home;
        const QString folder = home.filePath(QStringLiteral("data/com.brenlow.tidewell"));
        const QString path = folder + QStringLiteral("/store.sqlite");
        QVERIFY(QDir().mkpath(folder));
        make(path);
        if (QTest::currentTestFailed())
            return;
        const auto immutable = qScopeGuard([&] {
            if (::geteuid() == 0)
                QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("-i"), path});
        });
        const QByteArray before = digest(path);
        // The files of the store; the lock beside it is the app's own.
        const auto storeFiles = [&folder] {
            QStringList files = QDir(folder).entryList(QDir::Files);
            files.removeAll(QStringLiteral("store.sqlite.lock"));
            return files;
        };
        const QStringList filesBefore = storeFiles();

        QProcess app;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), home.path());
        app.setProcessEnvironment(env);
        app.start(QStringLiteral(TIDEWELL_BINARY), {});
        QVERIFY(app.waitForFinished(30000));
        QVERIFY(app.exitStatus() == QProcess::NormalExit && app.exitCode() != 0);
        // One line names the file and says why.
        const QString err = QString::fromLocal8Bit(app.readAllStandardError());
        const QRegularExpression said(u"^Failed to initialise SwiftData store at " +
                                          QRegularExpression::escape(path) + u": .*" +
                                          QRegularExpression::escape(reason) + u".*$",
                                      QRegularExpression::MultilineOption);
        QVERIFY2(said.match(err).hasMatch(), qPrintable(err));

        QCOMPARE(digest(path), before);
        QCOMPARE(storeFiles(), filesBefore);
    }
};

QTEST_GUILESS_MAIN(TestStoreFailure)
#include "tst_storefailure.moc"
