#include "ResumeSignalLogind.h"

#include <QPointer>
#include <QThread>

std::unique_ptr<ResumeSignal> ResumeSignal::create()
{
    return std::make_unique<ResumeSignalLogind>();
}

ResumeSignalLogind::ResumeSignalLogind(QDBusConnection::BusType type, const QString& service)
{
    QPointer<ResumeSignalLogind> self(this);
    QThread* subscriber = QThread::create([self, type, service] {
        QDBusConnection bus = type == QDBusConnection::SystemBus ? QDBusConnection::systemBus()
                                                                 : QDBusConnection::sessionBus();
        // The signal is queued to this object's thread; a watcher gone by now
        // simply receives nothing.
        if (self && bus.isConnected())
            bus.connect(service, QStringLiteral("/org/freedesktop/login1"),
                        QStringLiteral("org.freedesktop.login1.Manager"),
                        QStringLiteral("PrepareForSleep"), self.data(),
                        SLOT(prepareForSleep(bool)));
    });
    subscriber->setObjectName(QStringLiteral("logind-subscribe"));
    connect(subscriber, &QThread::finished, subscriber, &QObject::deleteLater);
    subscriber->start();
}

void ResumeSignalLogind::prepareForSleep(bool goingToSleep)
{
    if (!goingToSleep)
        emit resumed();
}
