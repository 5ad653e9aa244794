#pragma once

#include "SleepInhibitor.h"

// org.freedesktop.ScreenSaver Inhibit/UnInhibit on the session bus. Calls wait at
// most a couple of seconds, so a hung service cannot freeze the app.
class SleepInhibitorDBus final : public SleepInhibitor
{
public:
    static constexpr int TimeoutMs = 2000;

    explicit SleepInhibitorDBus(QString service = QStringLiteral("org.freedesktop.ScreenSaver"),
                                QString path = QStringLiteral("/org/freedesktop/ScreenSaver"));
    std::optional<quint32> inhibit(const QString& reason) override;
    void uninhibit(quint32 cookie) override;

private:
    QString m_service;
    QString m_path;
};
