#include "SleepInhibitorDBus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>

namespace {
const QString interfaceName = QStringLiteral("org.freedesktop.ScreenSaver");
}

std::unique_ptr<SleepInhibitor> SleepInhibitor::create()
{
    return std::make_unique<SleepInhibitorDBus>();
}

SleepInhibitorDBus::SleepInhibitorDBus(QString service, QString path)
    : m_service(std::move(service))
    , m_path(std::move(path))
{}

std::optional<quint32> SleepInhibitorDBus::inhibit(const QString& reason)
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(m_service, m_path, interfaceName, QStringLiteral("Inhibit"));
    call << QStringLiteral("Tidewell") << reason;
    const QDBusReply<quint32> reply =
        QDBusConnection::sessionBus().call(call, QDBus::Block, TimeoutMs);
    if (!reply.isValid())
        return std::nullopt;
    return reply.value();
}

void SleepInhibitorDBus::uninhibit(quint32 cookie)
{
    QDBusMessage call = QDBusMessage::createMethodCall(m_service, m_path, interfaceName,
                                                       QStringLiteral("UnInhibit"));
    call << cookie;
    // Nobody waits for the answer: a lost release ends with our process anyway.
    QDBusConnection::sessionBus().call(call, QDBus::NoBlock);
}
