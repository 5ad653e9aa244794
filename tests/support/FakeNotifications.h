#pragma once

#include "NotificationBackend.h"

#include <QStringList>

#include <memory>

// A notification server that shows nothing and remembers what it was asked to
// show ("title: body"), in a list the test keeps reading after handing this over.
class FakeNotifications final : public NotificationBackend
{
public:
    explicit FakeNotifications(std::shared_ptr<QStringList> shown = std::make_shared<QStringList>())
        : m_shown(std::move(shown))
    {}

    QCoro::Task<QString> notify(const QString& title, const QString& body) override
    {
        m_shown->append(title + QStringLiteral(": ") + body);
        co_return QString();
    }
    QCoro::Task<QString> checkServer() override { co_return QString(); }

private:
    std::shared_ptr<QStringList> m_shown;
};
