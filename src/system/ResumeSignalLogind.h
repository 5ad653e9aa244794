#pragma once

#include "ResumeSignal.h"

#include <QDBusConnection>

// logind's PrepareForSleep(false) on the system bus. The bus is reached from a
// short-lived thread: connecting and subscribing wait for answers, and the GUI
// thread never waits for D-Bus.
class ResumeSignalLogind final : public ResumeSignal
{
    Q_OBJECT

public:
    // Tests point it at a stand-in on the session bus.
    explicit ResumeSignalLogind(QDBusConnection::BusType bus = QDBusConnection::SystemBus,
                                const QString& service = QStringLiteral("org.freedesktop.login1"));

private slots:
    void prepareForSleep(bool goingToSleep);
};
