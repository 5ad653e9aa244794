#pragma once

#include "NotificationBackend.h"

// org.freedesktop.Notifications on the session bus; every call has a time limit.
class NotificationBackendDBus final : public NotificationBackend
{
public:
    static constexpr int TimeoutMs = 3000;

    explicit NotificationBackendDBus(
        QString service = QStringLiteral("org.freedesktop.Notifications"));
    QCoro::Task<QString> notify(const QString& title, const QString& body) override;
    QCoro::Task<QString> checkServer() override;

private:
    QString m_service;
};
