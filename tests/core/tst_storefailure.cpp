#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

class TestStoreFailure final : public QObject
{
    Q_OBJECT

private slots:
    void damagedStoreEndsStartupUntouched()
    {
        QTemporaryDir home;
        const QString folder = home.filePath(QStringLiteral("data/com.brenlow.tidewell"));
        const QString path = folder + QStringLiteral("/store.sqlite");
        const QByteArray noise = QByteArray("\x93\0not a database\x07", 17).repeated(482);
        QFile file(path);
        QVERIFY(QDir().mkpath(folder) && file.open(QIODevice::WriteOnly));
        file.write(noise);
        file.close();

        QProcess app;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        app.setProcessEnvironment(env);
        app.start(QStringLiteral(TIDEWELL_BINARY), {});
        QVERIFY(app.waitForFinished(30000));
        QVERIFY(app.exitStatus() == QProcess::NormalExit && app.exitCode() != 0);
        // One line names the file and says why.
        const QString err = QString::fromLocal8Bit(app.readAllStandardError());
        const QRegularExpression said(u"^Failed to initialise SwiftData store at " +
                                          QRegularExpression::escape(path) + u": .+$",
                                      QRegularExpression::MultilineOption);
        QVERIFY2(said.match(err).hasMatch(), qPrintable(err));

        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), noise);
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{QStringLiteral("store.sqlite")});
    }
};

QTEST_GUILESS_MAIN(TestStoreFailure)
#include "tst_storefailure.moc"
