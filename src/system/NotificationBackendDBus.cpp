#include "NotificationBackendDBus.h"

#include "DBusCallAwaiter.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace {
const QString path = QStringLiteral("/org/freedesktop/Notifications");
const QString interfaceName = QStringLiteral("org.freedesktop.Notifications");
} // namespace

std::unique_ptr<NotificationBackend> NotificationBackend::create()
{
    return std::make_unique<NotificationBackendDBus>();
}

NotificationBackendDBus::NotificationBackendDBus(QString service)
    : m_service(std::move(service))
{}

QCoro::Task<QString> NotificationBackendDBus::notify(const QString& title, const QString& body)
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(m_service, path, interfaceName, QStringLiteral("Notify"));
    // The server's default sound for an ordinary message.
    const QVariantMap hints{
        {QStringLiteral("sound-name"), QStringLiteral("message-new-instant")},
        {QStringLiteral("desktop-entry"), QStringLiteral("com.brenlow.tidewell")}};
    // The icon by its theme name, installed with the desktop entry of the same name.
    call << QStringLiteral("Tidewell") << quint32(0) << QStringLiteral("com.brenlow.tidewell")
         << title << body << QStringList() << hints << qint32(-1);
    const QDBusPendingReply<quint32> reply =
        co_await DBusCallAwaiter(QDBusConnection::sessionBus().asyncCall(call, TimeoutMs));
    co_return reply.isError() ? reply.error().message() : QString();
}

QCoro::Task<QString> NotificationBackendDBus::checkServer()
{
    const QDBusMessage call = QDBusMessage::createMethodCall(
        m_service, path, interfaceName, QStringLiteral("GetServerInformation"));
    const QDBusPendingReply<QString, QString, QString, QString> reply =
        co_await DBusCallAwaiter(QDBusConnection::sessionBus().asyncCall(call, TimeoutMs));
    co_return reply.isError() ? reply.error().message() : QString();
}
