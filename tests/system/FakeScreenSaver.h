#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QMutex>
#include <QMutexLocker>
#include <QObject>
#include <QSet>

// A stand-in org.freedesktop.ScreenSaver that hands out cookies and can be told
// to never answer, as a hung service would. Runs in a worker thread (see
// FakeNotificationServer for why).
class FakeScreenSaver final : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")

public:
    bool registerOn(const QString& service)
    {
        m_connection = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                     QStringLiteral("fake-screensaver-") + service);
        return m_connection.registerObject(QStringLiteral("/org/freedesktop/ScreenSaver"), this,
                                           QDBusConnection::ExportAllSlots) &&
               m_connection.registerService(service);
    }

    void setSilent(bool silent) { m_silent = silent; }

    QSet<uint> held() const
    {
        QMutexLocker locker(&m_lock);
        return m_held;
    }
    int inhibitCalls() const
    {
        QMutexLocker locker(&m_lock);
        return m_calls;
    }
    QString lastReason() const
    {
        QMutexLocker locker(&m_lock);
        return m_reason;
    }

public slots:
    uint Inhibit(const QString&, const QString& reason)
    {
        QMutexLocker locker(&m_lock);
        ++m_calls;
        if (m_silent) {
            setDelayedReply(true); // and never reply
            return 0;
        }
        m_reason = reason;
        m_held.insert(++m_nextCookie);
        return m_nextCookie;
    }

    void UnInhibit(uint cookie)
    {
        QMutexLocker locker(&m_lock);
        m_held.remove(cookie);
    }

private:
    QDBusConnection m_connection{QString()};
    mutable QMutex m_lock;
    QSet<uint> m_held;
    uint m_nextCookie = 41;
    int m_calls = 0;
    QString m_reason;
    bool m_silent = false;
};
