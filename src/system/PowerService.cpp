#include "PowerService.h"

#include "SleepInhibitor.h"

#include <QPointer>

PowerService::PowerService(std::unique_ptr<SleepInhibitor> inhibitor, QObject* parent)
    : QObject(parent)
    , m_inhibitor(std::move(inhibitor))
{}

PowerService::~PowerService() = default;

void PowerService::acquire(const QString& reason)
{
    m_wanted = true;
    if (m_held || m_asking)
        return;
    m_asking = true;
    QPointer<PowerService> self(this);
    m_inhibitor->inhibit(reason, [self](std::optional<quint32> cookie) {
        if (!self)
            return;
        self->m_asking = false;
        if (!cookie)
            return;
        // Released while the answer was on its way: give it straight back.
        if (!self->m_wanted) {
            self->m_inhibitor->uninhibit(*cookie);
            return;
        }
        self->m_assertionID = *cookie;
        self->m_held = true;
        emit self->isHeldChanged();
    });
}

void PowerService::release()
{
    m_wanted = false;
    if (!m_held)
        return;
    m_inhibitor->uninhibit(m_assertionID);
    m_assertionID = 0;
    m_held = false;
    emit isHeldChanged();
}
