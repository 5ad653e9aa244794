#include "PowerService.h"

#include "SleepInhibitor.h"

#include <QCoreApplication>
#include <QPointer>

PowerService& PowerService::shared()
{
    static auto* instance = new PowerService(QCoreApplication::instance());
    return *instance;
}

PowerService::PowerService(QObject* parent)
    : QObject(parent)
    , m_inhibitor(SleepInhibitor::create())
{}

PowerService::~PowerService() = default;

void PowerService::setInhibitor(std::unique_ptr<SleepInhibitor> inhibitor)
{
    m_inhibitor = std::move(inhibitor);
}

void PowerService::acquire(const QString& reason)
{
    m_wanted = true;
    if (m_held || m_asking)
        return;
    m_asking = true;
    QPointer<PowerService> self(this);
    SleepInhibitor* asked = m_inhibitor.get();
    m_inhibitor->inhibit(reason, [self, asked](std::optional<quint32> cookie) {
        if (!self)
            return;
        self->m_asking = false;
        if (!cookie)
            return;
        // Released (or replaced) while the answer was on its way: give it straight back.
        if (!self->m_wanted || asked != self->m_inhibitor.get()) {
            if (asked == self->m_inhibitor.get())
                asked->uninhibit(*cookie);
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
