#include "SleepInhibitorDBus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

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

void SleepInhibitorDBus::inhibit(const QString& reason, Answer answer)
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(m_service, m_path, interfaceName, QStringLiteral("Inhibit"));
    call << QStringLiteral("Tidewell") << reason;
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call, TimeoutMs));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [answer = std::move(answer)](QDBusPendingCallWatcher* finished) {
                         finished->deleteLater();
                         const QDBusPendingReply<quint32> reply = *finished;
                         answer(reply.isValid() ? std::optional<quint32>(reply.value())
                                                : std::nullopt);
                     });
}

void SleepInhibitorDBus::uninhibit(quint32 cookie)
{
    QDBusMessage call = QDBusMessage::createMethodCall(m_service, m_path, interfaceName,
                                                       QStringLiteral("UnInhibit"));
    call << cookie;
    // Nobody waits for the answer: a lost release ends with our process anyway.
    QDBusConnection::sessionBus().call(call, QDBus::NoBlock);
}
