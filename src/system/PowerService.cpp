#include "PowerService.h"

#include "SleepInhibitor.h"

#include <QCoreApplication>
#include <QMutexLocker>

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
    bool changed = false;
    {
        QMutexLocker locker(&m_lock);
        if (m_held)
            return;
        const std::optional<quint32> cookie = m_inhibitor->inhibit(reason);
        m_held = cookie.has_value();
        m_assertionID = cookie.value_or(0);
        changed = m_held;
    }
    if (changed)
        emit isHeldChanged();
}

void PowerService::release()
{
    {
        QMutexLocker locker(&m_lock);
        if (!m_held)
            return;
        m_inhibitor->uninhibit(m_assertionID);
        m_assertionID = 0;
        m_held = false;
    }
    emit isHeldChanged();
}

bool PowerService::isHeld() const
{
    QMutexLocker locker(&m_lock);
    return m_held;
}

quint32 PowerService::assertionID() const
{
    QMutexLocker locker(&m_lock);
    return m_assertionID;
}
