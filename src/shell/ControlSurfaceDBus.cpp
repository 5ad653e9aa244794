#include "ControlSurface.h"

#include "AppServices.h"
#include "DataStore.h"
#include "DesktopBus.h"

void ControlSurface::publish(AppServices& services, QObject* owner,
                             std::function<void()> showHistory)
{
    auto* bus = new DesktopBus(services.timer(), services.habits(), services.tasks(),
                               services.store().mainContext(), services.transfer(), owner);
    QObject::connect(bus, &DesktopBus::historyRequested, owner, std::move(showHistory));
    QObject::connect(bus, &DesktopBus::registered, owner, [](bool ok, const QString& why) {
        if (!ok)
            qWarning("ControlSurface: not on the session bus (%s)", qPrintable(why));
    });
    bus->publish();
}
