#pragma once

#include <QWidget>

class AudioService;
class NotificationService;
class QPushButton;
class Switch;

// The hub's "Settings" block: sounds, notifications (with a test button),
// auto-start of sessions, and launch at login.
class SettingsView final : public QWidget
{
    Q_OBJECT

public:
    SettingsView(AudioService& audio, NotificationService& notifications,
                 QWidget* parent = nullptr);

    Switch* soundsSwitch() const { return m_sounds; }
    Switch* notificationsSwitch() const { return m_notifications; }
    Switch* autoStartSwitch() const { return m_autoStart; }
    Switch* launchAtLoginSwitch() const { return m_launchAtLogin; }
    QPushButton* testButton() const { return m_test; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void applyLaunchAtLogin(bool on);

    AudioService& m_audio;
    NotificationService& m_notificationService;
    Switch* m_sounds = nullptr;
    Switch* m_notifications = nullptr;
    Switch* m_autoStart = nullptr;
    Switch* m_launchAtLogin = nullptr;
    QPushButton* m_test = nullptr;
};
