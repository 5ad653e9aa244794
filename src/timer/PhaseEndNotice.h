#pragma once

#include <QDateTime>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class NotificationService;

// The notice that the running phase has ended, scheduled for its end instant and
// withdrawn whenever the phase stops early. The scheduler answers with the
// notice's identifier later; one that arrives for a phase since stopped is
// withdrawn at once.
class PhaseEndNotice
{
public:
    // Where notices are scheduled. It calls `done` with the notice's identifier
    // (or nothing) whenever it has one, possibly long after the call.
    using Scheduler =
        std::function<void(const QString& title, const QString& body, const QDateTime& fireAt,
                           std::function<void(std::optional<QString>)> done)>;

    static Scheduler through(NotificationService& notifications);

    PhaseEndNotice(Scheduler schedule, NotificationService& notifications);

    void schedule(const QString& title, const QString& body, const QDateTime& at);
    void withdraw();
    // The scheduled notice's identifier, once the scheduler gave it.
    std::optional<QString> id() const { return m_state->id; }

private:
    struct State
    {
        quint64 run = 0; // bumped at every withdrawal
        bool pending = false;
        std::optional<QString> id;
    };

    Scheduler m_schedule;
    NotificationService& m_notifications;
    std::shared_ptr<State> m_state = std::make_shared<State>();
};
