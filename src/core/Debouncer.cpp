#include "Debouncer.h"

#include <QTimer>

Debouncer::Debouncer(QObject* parent)
    : QObject(parent)
{}

Debouncer::~Debouncer() = default;

void Debouncer::schedule(const QString& key, std::chrono::milliseconds delay,
                         std::function<void()> action)
{
    cancel(key);
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    connect(timer, &QTimer::timeout, this, [this, key, timer, action = std::move(action)] {
        m_timers.remove(key);
        timer->deleteLater();
        action();
    });
    m_timers.insert(key, timer);
    timer->start(delay);
}

void Debouncer::cancel(const QString& key)
{
    if (QTimer* timer = m_timers.take(key)) {
        timer->stop();
        timer->deleteLater();
    }
}

bool Debouncer::isPending(const QString& key) const
{
    return m_timers.contains(key);
}
