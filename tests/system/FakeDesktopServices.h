#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QMetaClassInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QObject>
#include <QSet>
#include <QVariantMap>

#include <atomic>

// Stand-ins for the desktop's D-Bus services, each on its own bus connection so the
// services' real calls are answered. They live in a worker thread: calls from the
// test's thread then get answers without the test spinning an event loop.
class FakeDBusService : public QObject
{
public:
    // Exported at its interface name as a path, where the real services live.
    bool registerOn(const QString& service)
    {
        const QMetaObject* meta = metaObject();
        QString path =
            QString::fromLatin1(meta->classInfo(meta->indexOfClassInfo("D-Bus Interface")).value());
        path = u'/' + path.replace(u'.', u'/');
        m_connection =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"fake-" + service);
        return m_connection.registerObject(path, this, QDBusConnection::ExportAllSlots) &&
               m_connection.registerService(service);
    }

protected:
    mutable QMutex m_lock; // the test's thread reads what the worker's calls wrote
    QDBusConnection m_connection{QString()};
};

class FakeNotificationServer final : public FakeDBusService
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Notice
    {
        QString appName, summary, body;
        QVariantMap hints;
        QString appIcon;
    };

    QList<Notice> notices() const
    {
        QMutexLocker locker(&m_lock);
        return m_notices;
    }

public slots:
    uint Notify(const QString& appName, uint, const QString& appIcon, const QString& summary,
                const QString& body, const QStringList&, const QVariantMap& hints, int)
    {
        QMutexLocker locker(&m_lock);
        m_notices.append({appName, summary, body, hints, appIcon});
        return uint(m_notices.size());
    }

    QString GetServerInformation(QString& vendor, QString& version, QString& protocolVersion)
    {
        vendor = version = QStringLiteral("1");
        protocolVersion = QStringLiteral("1.2");
        return QStringLiteral("fake");
    }

private:
    QList<Notice> m_notices;
};

// Hands out cookies, and can be told never to answer, as a hung service would.
class FakeScreenSaver final : public FakeDBusService, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")

public:
    void setSilent(bool silent) { m_silent = silent; }
    // Answers Inhibit calls only on answerHeld(), as a slow service would.
    void setHoldAnswers(bool hold) { m_holdAnswers = hold; }
    void answerHeld()
    {
        QMutexLocker locker(&m_lock);
        for (const auto& [call, cookie] : std::as_const(m_heldAnswers))
            m_connection.send(call.createReply(cookie));
        m_heldAnswers.clear();
    }

    struct State
    {
        QSet<uint> held; // cookies not yet released
        int calls = 0;   // Inhibit calls, answered or not
        QString reason;  // of the last answered call
    };

    State state() const
    {
        QMutexLocker locker(&m_lock);
        return m_state;
    }

public slots:
    uint Inhibit(const QString&, const QString& reason)
    {
        QMutexLocker locker(&m_lock);
        ++m_state.calls;
        if (m_silent) {
            setDelayedReply(true); // and never reply
            return 0;
        }
        m_state.reason = reason;
        m_state.held.insert(++m_nextCookie);
        if (m_holdAnswers) {
            setDelayedReply(true);
            m_heldAnswers.append(std::make_pair(message(), m_nextCookie));
        }
        return m_nextCookie;
    }

    void UnInhibit(uint cookie)
    {
        QMutexLocker locker(&m_lock);
        m_state.held.remove(cookie);
    }

private:
    State m_state;
    uint m_nextCookie = 41;
    std::atomic<bool> m_silent = false;
    std::atomic<bool> m_holdAnswers = false;
    QList<std::pair<QDBusMessage, uint>> m_heldAnswers;
};
