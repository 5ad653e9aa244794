#include "LaunchAtLogin.h"
#include "Preferences.h"

#include <QFile>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

class TestLaunchAtLogin final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_config;

private slots:
    void initTestCase() { qputenv("XDG_CONFIG_HOME", m_config.path().toLocal8Bit()); }

    void roundTrip()
    {
        const QString entry =
            m_config.filePath(QStringLiteral("autostart/com.brenlow.tidewell.desktop"));
        QCOMPARE(LaunchAtLogin::entryPath(), entry);
        QVERIFY(!LaunchAtLogin::isEnabled());

        QString error;
        QVERIFY(LaunchAtLogin::setEnabled(true, &error));
        QVERIFY(LaunchAtLogin::isEnabled());
        QFile file(entry);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray content = file.readAll();
        file.close();
        QVERIFY(content.startsWith("[Desktop Entry]\n"));
        QVERIFY(content.contains(
            QByteArray("Exec=\"" + QCoreApplication::applicationFilePath().toUtf8() + "\"\n")));
        QVERIFY(content.contains("Type=Application\n"));

        // A desktop's own "disable" (Hidden=true) counts as off.
        QVERIFY(file.open(QIODevice::Append));
        file.write("Hidden = true\n");
        file.close();
        QVERIFY(!LaunchAtLogin::isEnabled());

        QVERIFY(LaunchAtLogin::setEnabled(true, &error));
        QVERIFY(LaunchAtLogin::isEnabled());
        QVERIFY(LaunchAtLogin::setEnabled(false, &error));
        QVERIFY(!QFile::exists(entry));
        QVERIFY(LaunchAtLogin::setEnabled(false, &error)); // already off
    }

    void failureIsReported()
    {
        // The autostart folder cannot be created where a file stands.
        QFile blocker(m_config.filePath(QStringLiteral("autostart")));
        QFile::remove(blocker.fileName());
        QDir(m_config.filePath(QStringLiteral("autostart"))).removeRecursively();
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        QString error;
        QVERIFY(!LaunchAtLogin::setEnabled(true, &error));
        QVERIFY(!error.isEmpty());
        QVERIFY(!LaunchAtLogin::isEnabled());
        QFile::remove(blocker.fileName());
    }

    void preferenceDefaultsAndOverride()
    {
        QSettings(QStringLiteral("com.brenlow.tidewell"), QStringLiteral("Tidewell")).clear();
        QVERIFY(Preferences::soundsEnabled());
        QVERIFY(Preferences::notificationsEnabled());
        QVERIFY(!Preferences::autoStartSessions());
        Preferences::setSoundsEnabled(false);
        QVERIFY(!Preferences::soundsEnabled());
        QCOMPARE(QSettings(QStringLiteral("com.brenlow.tidewell"), QStringLiteral("Tidewell"))
                     .value(QStringLiteral("settings.soundsEnabled")),
                 QVariant(false));
    }
};

QTEST_GUILESS_MAIN(TestLaunchAtLogin)
#include "tst_launchatlogin.moc"
