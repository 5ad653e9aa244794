#include <QDir>
#include <QFile>
#include <QProcess>
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
        QVERIFY(QDir().mkpath(folder));
        const QString path = folder + QStringLiteral("/store.sqlite");
        QByteArray noise(8192, '\0');
        for (int i = 0; i < noise.size(); ++i)
            noise[i] = char((i * 7919 + 13) % 256);
        {
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(noise);
        }

        QProcess app;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        app.setProcessEnvironment(env);
        app.start(QStringLiteral(TIDEWELL_BINARY), {});
        QVERIFY(app.waitForFinished(30000));
        QVERIFY(app.exitStatus() == QProcess::NormalExit);
        QVERIFY(app.exitCode() != 0);

        const QString err = QString::fromLocal8Bit(app.readAllStandardError());
        const QString expected = u"Failed to initialise SwiftData store at " + path + u": ";
        const QStringList lines = err.split(u'\n', Qt::SkipEmptyParts);
        QVERIFY2(std::any_of(lines.begin(), lines.end(),
                             [&](const QString& l) {
                                 return l.startsWith(expected) && l.size() > expected.size();
                             }),
                 qPrintable(err));

        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), noise);
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{QStringLiteral("store.sqlite")});
    }
};

QTEST_GUILESS_MAIN(TestStoreFailure)
#include "tst_storefailure.moc"
