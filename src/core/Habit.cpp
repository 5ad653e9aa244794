#include "Habit.h"

#include "HabitHistory.h"
#include "ModelContext.h"

Habit::Habit(const QString& icon, const QString& name, const QString& colorHex, qint64 maxValue,
             qint64 order, const QDateTime& firstTrackerDate)
    : m_id(QUuid::createUuid())
    , m_icon(icon)
    , m_name(name)
    , m_colorHex(colorHex)
    , m_maxValue(maxValue)
    , m_firstTrackerDate(firstTrackerDate)
    , m_order(order)
{}

QList<HabitHistory*> Habit::history() const
{
    if (!context())
        return {};
    return context()->fetch<HabitHistory>(FetchRequest::where("habitId", m_id));
}
