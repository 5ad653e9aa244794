#include "NotificationBackend.h"

namespace {
const QString unavailable = QStringLiteral("notifications are not available on this system");

// No notification server to talk to: every notice is dropped, and says so.
class NotificationBackendNone final : public NotificationBackend
{
public:
    QCoro::Task<QString> notify(const QString&, const QString&) override { co_return unavailable; }
    QCoro::Task<QString> checkServer() override { co_return unavailable; }
};
} // namespace

std::unique_ptr<NotificationBackend> NotificationBackend::create()
{
    return std::make_unique<NotificationBackendNone>();
}
