#include "PhaseEndNotice.h"

#include "NotificationService.h"

PhaseEndNotice::Scheduler PhaseEndNotice::through(NotificationService& notifications)
{
    return [&notifications](const QString& title, const QString& body, const QDateTime& fireAt,
                            std::function<void(std::optional<QString>)> done) {
        QCoro::connect(notifications.schedule(title, body, fireAt), &notifications,
                       std::move(done));
    };
}

PhaseEndNotice::PhaseEndNotice(Scheduler schedule, NotificationService& notifications)
    : m_schedule(std::move(schedule))
    , m_notifications(notifications)
{}

void PhaseEndNotice::schedule(const QString& title, const QString& body, const QDateTime& at)
{
    m_state->pending = true;
    auto done = [state = std::weak_ptr<State>(m_state), run = m_state->run,
                 &notifications = m_notifications](std::optional<QString> id) {
        if (!id)
            return;
        const std::shared_ptr<State> now = state.lock();
        if (!now || run != now->run || !now->pending) {
            notifications.cancel(*id);
            return;
        }
        now->id = std::move(id);
    };
    m_schedule(title, body, at, std::move(done));
}

void PhaseEndNotice::withdraw()
{
    ++m_state->run;
    m_state->pending = false;
    if (m_state->id) {
        m_notifications.cancel(*m_state->id);
        m_state->id.reset();
    }
}
