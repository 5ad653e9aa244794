#include "AudioService.h"
#include "LaunchAtLogin.h"
#include "Preferences.h"
#include "SettingsView.h"
#include "Switch.h"

#include <QDir>
#include <QFile>
#include <QPushButton>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

class TestSettingsView final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_config;

    QString autostartEntry() const
    {
        return m_config.filePath(QStringLiteral("autostart/com.brenlow.tidewell.desktop"));
    }

private slots:
    void initTestCase()
    {
        qputenv("XDG_CONFIG_HOME", m_config.path().toLocal8Bit());
        QSettings(QStringLiteral("com.brenlow.tidewell"), QStringLiteral("Tidewell")).clear();
    }

    void freshDefaultsAndMirroredSounds()
    {
        {
            SettingsView view;
            view.show();
            QVERIFY(QTest::qWaitForWindowExposed(&view));
            QVERIFY(view.soundsSwitch()->isChecked());
            QVERIFY(view.notificationsSwitch()->isChecked());
            QVERIFY(!view.autoStartSwitch()->isChecked());
            QVERIFY(!view.launchAtLoginSwitch()->isChecked());
            QVERIFY(!AudioService::shared().isMuted());
            for (auto* sw : view.findChildren<Switch*>())
                QVERIFY(!sw->accessibleName().isEmpty());
            QCOMPARE(view.testButton()->accessibleName(), QStringLiteral("Test"));

            view.soundsSwitch()->click();
            QVERIFY(AudioService::shared().isMuted());
            QVERIFY(!Preferences::soundsEnabled());
            view.autoStartSwitch()->click();
            QVERIFY(Preferences::autoStartSessions());
        }
        // After a restart the stored preference mutes from the first second.
        AudioService::shared().setMuted(false);
        SettingsView::applySoundsPreference();
        QVERIFY(AudioService::shared().isMuted());
        SettingsView again;
        QVERIFY(!again.soundsSwitch()->isChecked());
        again.soundsSwitch()->click();
        QVERIFY(!AudioService::shared().isMuted());
    }

    void launchAtLoginFollowsTheAutostartEntry()
    {
        SettingsView view;
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        view.launchAtLoginSwitch()->click();
        QVERIFY(QFile::exists(autostartEntry()));
        QVERIFY(LaunchAtLogin::isEnabled());
        view.hide();

        // Someone else hides the entry: the switch reads the system again on show.
        QFile entry(autostartEntry());
        QVERIFY(entry.open(QIODevice::Append));
        entry.write("Hidden=true\n");
        entry.close();
        view.show();
        QTRY_VERIFY(!view.launchAtLoginSwitch()->isChecked());

        view.launchAtLoginSwitch()->click();
        QVERIFY(LaunchAtLogin::isEnabled());
        view.launchAtLoginSwitch()->click();
        QVERIFY(!LaunchAtLogin::isEnabled());
    }
};

QTEST_MAIN(TestSettingsView)
#include "tst_settingsview.moc"
