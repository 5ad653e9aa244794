#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QList>
#include <QMutex>
#include <QMutexLocker>
#include <QObject>
#include <QVariantMap>

// A stand-in notification server on its own bus connection, so the service's
// real D-Bus calls are answered. Lives in a worker thread: calls from the test's
// thread then get answers without the test spinning an event loop.
class FakeNotificationServer final : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Notice
    {
        QString appName;
        QString summary;
        QString body;
        QVariantMap hints;
    };

    bool registerOn(const QString& service)
    {
        m_connection = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                     QStringLiteral("fake-notifications"));
        return m_connection.registerObject(QStringLiteral("/org/freedesktop/Notifications"), this,
                                           QDBusConnection::ExportAllSlots) &&
               m_connection.registerService(service);
    }

    QList<Notice> notices() const
    {
        QMutexLocker locker(&m_lock);
        return m_notices;
    }

public slots:
    uint Notify(const QString& appName, uint, const QString&, const QString& summary,
                const QString& body, const QStringList&, const QVariantMap& hints, int)
    {
        QMutexLocker locker(&m_lock);
        m_notices.append({appName, summary, body, hints});
        return uint(m_notices.size());
    }

    QString GetServerInformation(QString& vendor, QString& version, QString& specVersion)
    {
        vendor = QStringLiteral("test");
        version = QStringLiteral("1");
        specVersion = QStringLiteral("1.2");
        return QStringLiteral("fake");
    }

private:
    QDBusConnection m_connection{QString()};
    mutable QMutex m_lock;
    QList<Notice> m_notices;
};
