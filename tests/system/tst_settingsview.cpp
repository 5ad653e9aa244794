#include "AudioService.h"
#include "SettingsView.h"
#include "Switch.h"
#include "TestServices.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

class TestSettingsView final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_config;
    std::unique_ptr<AppServices> m_services;

private slots:
    void initTestCase()
    {
        m_services = std::make_unique<AppServices>(testParts());
        qputenv("XDG_CONFIG_HOME", m_config.path().toLocal8Bit());
        QSettings(QStringLiteral("com.brenlow.tidewell"), QStringLiteral("Tidewell")).clear();
    }

    void preferencesStartAtDefaultsAndPersist()
    {
        {
            SettingsView view(m_services->audio(), m_services->notifications());
            view.show();
            QVERIFY(QTest::qWaitForWindowExposed(&view));
            QVERIFY(view.soundsSwitch()->isChecked());
            QVERIFY(view.notificationsSwitch()->isChecked());
            QVERIFY(!view.autoStartSwitch()->isChecked());
            QVERIFY(!view.launchAtLoginSwitch()->isChecked());
            QVERIFY(!m_services->audio().isMuted());
            for (auto* sw : view.findChildren<Switch*>())
                QVERIFY(!sw->accessibleName().isEmpty());

            view.soundsSwitch()->click();
            QVERIFY(m_services->audio().isMuted());
            view.autoStartSwitch()->click();
        }
        // Kept under the key earlier versions wrote, so an upgrade keeps the choice.
        QCOMPARE(QSettings(QStringLiteral("com.brenlow.tidewell"), QStringLiteral("Tidewell"))
                     .value(QStringLiteral("settings.soundsEnabled")),
                 QVariant(false));
        // After a restart the stored preference mutes from the first second.
        m_services->audio().setMuted(false);
        m_services->audio().applySoundsPreference();
        QVERIFY(m_services->audio().isMuted());
        SettingsView again(m_services->audio(), m_services->notifications());
        QVERIFY(!again.soundsSwitch()->isChecked());
        QVERIFY(again.autoStartSwitch()->isChecked());
        again.soundsSwitch()->click();
        QVERIFY(!m_services->audio().isMuted());
    }
};

QTEST_MAIN(TestSettingsView)
#include "tst_settingsview.moc"
