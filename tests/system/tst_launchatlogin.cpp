#include "LaunchAtLogin.h"
#include "SettingsView.h"
#include "Switch.h"
#include "TestServices.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

// Launch at login as an XDG autostart entry, through the settings view's switch.
class TestLaunchAtLogin final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_config;
    std::unique_ptr<AppServices> m_services;

private slots:
    void initTestCase()
    {
        m_services = std::make_unique<AppServices>(testParts());
        qputenv("XDG_CONFIG_HOME", m_config.path().toLocal8Bit());
    }

    void launchAtLoginFollowsTheAutostartEntry()
    {
        const QString path =
            m_config.filePath(QStringLiteral("autostart/com.brenlow.tidewell.desktop"));
        SettingsView view(m_services->audio(), m_services->notifications());
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        view.launchAtLoginSwitch()->click();
        QVERIFY(LaunchAtLogin::isEnabled());
        QFile entry(path);
        QVERIFY(entry.open(QIODevice::ReadOnly));
        const QByteArray content = entry.readAll();
        entry.close();
        QVERIFY(content.startsWith("[Desktop Entry]\n") && content.contains("Type=Application\n"));
        QVERIFY(content.contains(QByteArray(
            "Exec=\"" + QCoreApplication::applicationFilePath().toUtf8() + "\" --background\n")));
        view.hide();

        // Someone else hides the entry, with the blanks desktop entries allow: the switch
        // reads the system again on show.
        QVERIFY(entry.open(QIODevice::Append));
        entry.write("Hidden = true\n");
        entry.close();
        view.show();
        QTRY_VERIFY(!view.launchAtLoginSwitch()->isChecked());
        view.launchAtLoginSwitch()->click();
        QVERIFY(LaunchAtLogin::isEnabled());
        view.launchAtLoginSwitch()->click();
        QVERIFY(!QFile::exists(path));
        QString error;
        QVERIFY(LaunchAtLogin::setEnabled(false, &error)); // already off

        // An entry an earlier version wrote, for a binary elsewhere and without
        // --background, is brought up to date; one the user edited, or none, is left.
        const auto write = [&](const QByteArray& text) {
            QVERIFY(entry.open(QIODevice::WriteOnly | QIODevice::Truncate));
            entry.write(text);
            entry.close();
        };
        const QByteArray older = "[Desktop Entry]\nType=Application\nName=Tidewell\n"
                                 "Exec=\"/opt/old/tidewell\"\nIcon=com.brenlow.tidewell\n"
                                 "X-GNOME-Autostart-enabled=true\nTerminal=false\n";
        QVERIFY(!LaunchAtLogin::refresh());
        write(older);
        QVERIFY(LaunchAtLogin::refresh());
        QVERIFY(entry.open(QIODevice::ReadOnly));
        QVERIFY(entry.readAll().contains("\" --background\n"));
        entry.close();
        QVERIFY(!LaunchAtLogin::refresh());
        const QByteArray edited = QByteArray(older).replace("Terminal=false\n", "Terminal=false\n"
                                                                                "X-Mine=1\n");
        write(edited);
        QVERIFY(!LaunchAtLogin::refresh());
        QVERIFY(entry.open(QIODevice::ReadOnly));
        QCOMPARE(entry.readAll(), edited);
        entry.close();
        QVERIFY(entry.remove());

        // The autostart folder cannot be created where a file stands.
        QVERIFY(QDir(m_config.filePath(QStringLiteral("autostart"))).removeRecursively());
        QFile blocker(m_config.filePath(QStringLiteral("autostart")));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        QVERIFY(!LaunchAtLogin::setEnabled(true, &error));
        QVERIFY(!error.isEmpty());
        QVERIFY(!LaunchAtLogin::isEnabled());
    }
};

QTEST_MAIN(TestLaunchAtLogin)
#include "tst_launchatlogin.moc"
