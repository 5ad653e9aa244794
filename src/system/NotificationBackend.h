#pragma once

#include <QCoro/QCoroTask>
#include <QString>

#include <memory>

// Where notifications are shown. One implementation per platform.
class NotificationBackend
{
public:
    virtual ~NotificationBackend() = default;
    // Shows a notice now, with the desktop's default sound. Returns the error's
    // description, or an empty text on success.
    virtual QCoro::Task<QString> notify(const QString& title, const QString& body) = 0;
    // Asks the notification server who it is; the error's description when none answers.
    virtual QCoro::Task<QString> checkServer() = 0;

    static std::unique_ptr<NotificationBackend> create();
};
