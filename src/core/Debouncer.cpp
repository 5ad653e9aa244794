#include "Debouncer.h"

#include <QTimer>

#include <utility>

namespace {
class TimerWait final : public Debouncer::Wait
{
public:
    TimerWait(QObject* owner, std::function<void()> elapsed)
        : m_timer(new QTimer(owner))
    {
        m_timer->setSingleShot(true);
        m_timer->setTimerType(Qt::PreciseTimer);
        QObject::connect(m_timer, &QTimer::timeout, m_timer, std::move(elapsed));
    }
    ~TimerWait() override { delete m_timer; }
    TimerWait(const TimerWait&) = delete;
    TimerWait& operator=(const TimerWait&) = delete;

    void start(std::chrono::milliseconds delay) override { m_timer->start(delay); }
    void stop() override { m_timer->stop(); }
    bool isActive() const override { return m_timer->isActive(); }

private:
    QTimer* m_timer;
};
} // namespace

Debouncer::Debouncer(QObject* parent, WaitFactory waits)
    : QObject(parent)
    , m_waits(std::move(waits))
{
    if (!m_waits)
        m_waits = [this](std::function<void()> elapsed) {
            return std::make_unique<TimerWait>(this, std::move(elapsed));
        };
}

Debouncer::~Debouncer() = default;

void Debouncer::schedule(const QString& key, std::chrono::milliseconds delay,
                         std::function<void()> action)
{
    Pending& pending = m_pending[key];
    if (!pending.wait)
        pending.wait = m_waits([this, key] { elapsed(key); });
    pending.action = std::move(action);
    pending.wait->start(delay);
}

void Debouncer::elapsed(const QString& key)
{
    // Taken first: the action may schedule this key again.
    std::function<void()> due = std::exchange(m_pending[key].action, nullptr);
    if (due)
        due();
}

void Debouncer::cancel(const QString& key)
{
    const auto found = m_pending.find(key);
    if (found == m_pending.end())
        return;
    found->second.wait->stop();
    found->second.action = nullptr;
}

bool Debouncer::isPending(const QString& key) const
{
    const auto found = m_pending.find(key);
    return found != m_pending.end() && found->second.wait->isActive();
}
