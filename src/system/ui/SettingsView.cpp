#include "SettingsView.h"

#include "RoundedPanel.h"

#include "AudioService.h"
#include "LaunchAtLogin.h"
#include "NotificationService.h"
#include "Preferences.h"
#include "Switch.h"
#include "Theme.h"

#include <QCoreApplication>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

Switch* addRow(QVBoxLayout* rows, const QString& label, const QString& name, QWidget* parent,
               QWidget* trailing = nullptr)
{
    if (rows->count() > 0) {
        auto* divider = new QFrame(parent);
        divider->setFrameShape(QFrame::HLine);
        divider->setFrameShadow(QFrame::Plain);
        Theme::tint(divider, QColor(128, 128, 128, 40));
        rows->addWidget(divider);
    }
    auto* row = new QHBoxLayout;
    row->setContentsMargins(12, 8, 12, 8);
    auto* sw = new Switch(parent);
    sw->setObjectName(name);
    sw->setAccessibleName(label);
    auto* text = new QLabel(label, parent);
    text->setBuddy(sw);
    row->addWidget(sw);
    row->addWidget(text);
    row->addStretch();
    if (trailing)
        row->addWidget(trailing);
    rows->addLayout(row);
    return sw;
}
} // namespace

SettingsView::SettingsView(AudioService& audio, NotificationService& notifications, QWidget* parent)
    : QWidget(parent)
    , m_audio(audio)
    , m_notificationService(notifications)
{
    setObjectName(QStringLiteral("settingsView"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(8);
    auto* title = new QLabel(QStringLiteral("Settings"), this);
    title->setFont(Theme::font(Theme::Font::Subheadline, QFont::DemiBold));
    column->addWidget(title);

    auto* group = new RoundedPanel(Theme::secondary(0.06), 8, this);
    auto* rows = new QVBoxLayout(group);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(0);
    m_test = new QPushButton(QStringLiteral("Test"), group);
    m_test->setObjectName(QStringLiteral("testNotification"));
    m_test->setAccessibleName(QStringLiteral("Test"));
    m_sounds = addRow(rows, QStringLiteral("Sounds"), QStringLiteral("soundsSwitch"), group);
    m_notifications = addRow(rows, QStringLiteral("Notifications"),
                             QStringLiteral("notificationsSwitch"), group, m_test);
    m_autoStart = addRow(rows, QStringLiteral("Auto-start sessions"),
                         QStringLiteral("autoStartSwitch"), group);
    m_launchAtLogin = addRow(rows, QStringLiteral("Launch at login"),
                             QStringLiteral("launchAtLoginSwitch"), group);
    column->addWidget(group);

    m_sounds->setChecked(Preferences::soundsEnabled());
    m_notifications->setChecked(Preferences::notificationsEnabled());
    m_autoStart->setChecked(Preferences::autoStartSessions());
    m_launchAtLogin->setEnabled(LaunchAtLogin::isSupported());

    connect(m_sounds, &Switch::toggled, &m_audio, &AudioService::setSoundsEnabled);
    connect(m_notifications, &Switch::toggled, this, &Preferences::setNotificationsEnabled);
    connect(m_autoStart, &Switch::toggled, this, &Preferences::setAutoStartSessions);
    connect(m_launchAtLogin, &Switch::toggled, this, &SettingsView::applyLaunchAtLogin);
    connect(m_test, &QPushButton::clicked, this, [this] {
        // Works whatever the switch says; a failure is not the user's concern here.
        QCoro::connect(m_notificationService.fireTest(), qApp, [](const QString&) {});
    });
}

void SettingsView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // The system owns launch at login: read it back every time.
    const QSignalBlocker block(m_launchAtLogin);
    m_launchAtLogin->setChecked(LaunchAtLogin::isEnabled());
    m_audio.applySoundsPreference();
}

void SettingsView::applyLaunchAtLogin(bool on)
{
    QString error;
    if (!LaunchAtLogin::setEnabled(on, &error))
        qWarning("SMAppService toggle failed: %s", qPrintable(error));
}
