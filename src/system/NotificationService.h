#pragma once

#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QHash>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>

#include <memory>
#include <optional>

class Clock;
class NotificationBackend;
class QTimer;

// Posts and withdraws local notifications through org.freedesktop.Notifications.
// Linux servers cannot deliver at a future time, so pending requests are kept
// here (one timer each) and handed to the server when they fall due.
class NotificationService final : public QObject
{
    Q_OBJECT

public:
    // Notices are shown through `backend` (NotificationBackend::create() on this desktop).
    NotificationService(const Clock& clock, std::unique_ptr<NotificationBackend> backend,
                        QObject* parent = nullptr);

    // The new request's identifier (a UUID text), or nothing when `fireAt` is not
    // in the future or the request could not be added.
    QCoro::Task<std::optional<QString>> schedule(const QString& title, const QString& body,
                                                 const QDateTime& fireAt);
    // Withdraws a pending request; one whose moment has come is delivered instead
    // (its own timer may simply not have run yet, after a resume say).
    void cancel(const QString& id);
    // Delivers every pending request whose moment has come, at once; the clock
    // may have jumped (a resume from suspend, a changed system time).
    void deliverDue();
    // Withdraws every request this service added, and nothing else.
    void cancelAll();
    // Posts "Tidewell" / "Notifications are working." after 0.5 s, not recorded.
    // Returns the error's description, or an empty text on success.
    QCoro::Task<QString> fireTest();
    // Launch-time check: asks the server for its information; logs the
    // auth-error line when none answers.
    QCoro::Task<> checkAuthorization();

    QSet<QString> pendingIDs() const;

    ~NotificationService() override;

signals:
    // A request fell due and was handed to the notification server.
    void delivered(const QString& id);

private:
    void deliver(const QString& id, const QString& title, const QString& body);

    struct Pending
    {
        QTimer* timer = nullptr;
        QString title;
        QString body;
        QDateTime fireAt;
    };
    // Hands the request to the server when its moment has come, else waits on.
    void deliverIfDue(const QString& id);

    const Clock& m_clock;
    mutable QMutex m_lock; // guards m_pending
    QHash<QString, Pending> m_pending;
    std::unique_ptr<NotificationBackend> m_backend;
};
