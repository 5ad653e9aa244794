#include "DesktopBus.h"

#include "DataBusAdaptor.h"
#include "HabitsBusAdaptor.h"
#include "TasksBusAdaptor.h"
#include "TimerBusAdaptor.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QPointer>
#include <QThread>

DesktopBus::DesktopBus(PomodoroService& timer, HabitsService& habits, TasksService& tasks,
                       ModelContext& context, DataTransfer& transfer, QObject* parent)
    : QObject(parent)
{
    new TimerBusAdaptor(this, timer);
    new HabitsBusAdaptor(this, habits, context);
    new TasksBusAdaptor(this, tasks, context);
    new DataBusAdaptor(this, transfer);
}

void DesktopBus::publish()
{
    QPointer<DesktopBus> self(this);
    QThread* registrar = QThread::create([self] {
        QDBusConnection bus = QDBusConnection::sessionBus();
        QString why;
        bool ok = false;
        if (!bus.isConnected())
            why = QStringLiteral("no session bus");
        else if (!self ||
                 !bus.registerObject(ObjectPath, self.data(), QDBusConnection::ExportAdaptors))
            why = QStringLiteral("the object path is taken");
        else if (!bus.registerService(Service))
            why = bus.lastError().message();
        else
            ok = true;
        if (self)
            QMetaObject::invokeMethod(self.data(), [self, ok, why] {
                if (self)
                    emit self->registered(ok, why);
            });
    });
    registrar->setObjectName(QStringLiteral("bus-register"));
    connect(registrar, &QThread::finished, registrar, &QObject::deleteLater);
    registrar->start();
}

void DesktopBus::refuse(const QObject* adaptor, Error error, const QString& message)
{
    static const char* const names[] = {"Failed",     "InvalidArgs", "NoSuchHabit",
                                        "NoSuchList", "NoSuchTask",  "EmptyTask"};
    auto* bus = static_cast<DesktopBus*>(adaptor->parent());
    bus->sendErrorReply(ErrorPrefix + QLatin1String(names[int(error)]), message);
}

void DesktopBus::announce(const QString& interface, const QVariantMap& changed)
{
    QDBusMessage signal =
        QDBusMessage::createSignal(ObjectPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                                   QStringLiteral("PropertiesChanged"));
    signal << interface << changed << QStringList();
    QDBusConnection::sessionBus().send(signal);
}
