#pragma once

#include "ClockJumps.h"

#include <QDBusConnection>

class QSocketNotifier;

// logind's PrepareForSleep(false) on the system bus, and a CLOCK_REALTIME timerfd
// that the kernel cancels whenever the time is set. The bus is reached from a
// short-lived thread: connecting and subscribing wait for answers, and the GUI
// thread never waits for D-Bus.
class ClockJumpsLinux final : public ClockJumps
{
    Q_OBJECT

public:
    // Tests point it at a stand-in for logind on the session bus.
    explicit ClockJumpsLinux(QDBusConnection::BusType bus = QDBusConnection::SystemBus,
                             const QString& logind = QStringLiteral("org.freedesktop.login1"));
    ~ClockJumpsLinux() override;

private slots:
    void prepareForSleep(bool goingToSleep);

private:
    // Arms the timerfd far in the future; true when the kernel took it.
    bool armClockSetWatch();
    void clockWasSet();

    int m_timerFd = -1;
    QSocketNotifier* m_notifier = nullptr;
};
