#include "SleepInhibitor.h"

#include <QTimer>

namespace {
// Nothing to ask: every request is refused, on the calling thread's event loop as
// the interface promises, never from within inhibit().
class SleepInhibitorNone final : public SleepInhibitor
{
public:
    void inhibit(const QString&, Answer answer) override
    {
        QTimer::singleShot(0, [answer = std::move(answer)] { answer(std::nullopt); });
    }
    void uninhibit(quint32) override {}
};
} // namespace

std::unique_ptr<SleepInhibitor> SleepInhibitor::create()
{
    return std::make_unique<SleepInhibitorNone>();
}
