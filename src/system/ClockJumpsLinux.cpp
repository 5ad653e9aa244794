#include "ClockJumpsLinux.h"

#include <QPointer>
#include <QSocketNotifier>
#include <QThread>

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

std::unique_ptr<ClockJumps> ClockJumps::create()
{
    return std::make_unique<ClockJumpsLinux>();
}

ClockJumpsLinux::ClockJumpsLinux(QDBusConnection::BusType type, const QString& logind)
{
    QPointer<ClockJumpsLinux> self(this);
    QThread* subscriber = QThread::create([self, type, logind] {
        QDBusConnection bus = type == QDBusConnection::SystemBus ? QDBusConnection::systemBus()
                                                                 : QDBusConnection::sessionBus();
        // The signal is queued to this object's thread.
        if (self && bus.isConnected())
            bus.connect(logind, QStringLiteral("/org/freedesktop/login1"),
                        QStringLiteral("org.freedesktop.login1.Manager"),
                        QStringLiteral("PrepareForSleep"), self.data(),
                        SLOT(prepareForSleep(bool)));
    });
    subscriber->setObjectName(QStringLiteral("logind-subscribe"));
    connect(subscriber, &QThread::finished, subscriber, &QObject::deleteLater);
    subscriber->start();

    m_timerFd = ::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    if (m_timerFd < 0 || !armClockSetWatch()) {
        qWarning("ClockJumps: cannot watch for changes of the system time (errno %d)", errno);
        return;
    }
    m_notifier = new QSocketNotifier(m_timerFd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &ClockJumpsLinux::clockWasSet);
}

ClockJumpsLinux::~ClockJumpsLinux()
{
    delete m_notifier;
    if (m_timerFd >= 0)
        ::close(m_timerFd);
}

bool ClockJumpsLinux::armClockSetWatch()
{
    itimerspec far{};
    far.it_value.tv_sec = INT32_MAX; // 2038: never reached while armed
    return ::timerfd_settime(m_timerFd, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &far,
                             nullptr) == 0;
}

void ClockJumpsLinux::clockWasSet()
{
    // The read fails with ECANCELED after a change; either way the fd is drained.
    std::uint64_t expirations = 0;
    while (::read(m_timerFd, &expirations, sizeof expirations) > 0) {
    }
    armClockSetWatch();
    emit jumped();
}

void ClockJumpsLinux::prepareForSleep(bool goingToSleep)
{
    if (!goingToSleep)
        emit jumped();
}
