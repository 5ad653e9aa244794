#include "Debouncer.h"

#include <QTimer>

#include <utility>

Debouncer::Debouncer(QObject* parent)
    : QObject(parent)
{}

Debouncer::~Debouncer() = default;

void Debouncer::schedule(const QString& key, std::chrono::milliseconds delay,
                         std::function<void()> action)
{
    Pending& pending = m_pending[key];
    if (!pending.timer) {
        pending.timer = new QTimer(this);
        pending.timer->setSingleShot(true);
        pending.timer->setTimerType(Qt::PreciseTimer);
        connect(pending.timer, &QTimer::timeout, this, [this, key] {
            // Taken first: the action may schedule this key again.
            std::function<void()> due = std::exchange(m_pending[key].action, nullptr);
            if (due)
                due();
        });
    }
    pending.action = std::move(action);
    pending.timer->start(delay);
}

void Debouncer::cancel(const QString& key)
{
    const auto found = m_pending.find(key);
    if (found == m_pending.end())
        return;
    found->timer->stop();
    found->action = nullptr;
}

bool Debouncer::isPending(const QString& key) const
{
    const auto found = m_pending.constFind(key);
    return found != m_pending.cend() && found->timer->isActive();
}
