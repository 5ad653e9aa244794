#pragma once

#include "SleepInhibitor.h"

// org.freedesktop.ScreenSaver Inhibit/UnInhibit on the session bus. Nothing waits
// for the service: a hung one costs an unanswered call, never a frozen window.
class SleepInhibitorDBus final : public SleepInhibitor
{
public:
    static constexpr int TimeoutMs = 2000;

    explicit SleepInhibitorDBus(QString service = QStringLiteral("org.freedesktop.ScreenSaver"),
                                QString path = QStringLiteral("/org/freedesktop/ScreenSaver"));
    void inhibit(const QString& reason, Answer answer) override;
    void uninhibit(quint32 cookie) override;

private:
    QString m_service;
    QString m_path;
};
