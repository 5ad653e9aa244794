#include "HabitHistory.h"

#include "Habit.h"
#include "ModelContext.h"

HabitHistory::HabitHistory(const QString& date, qint64 value, qint64 maxValue, Habit* habit)
    : m_id(QUuid::createUuid())
    , m_date(date)
    , m_value(value)
    , m_maxValue(maxValue)
    , m_completed(value >= maxValue)
    , m_habitId(habit ? habit->id() : QUuid())
{}

Habit* HabitHistory::habit() const
{
    if (!context() || m_habitId.isNull())
        return nullptr;
    return context()->find<Habit>(m_habitId.toString(QUuid::WithoutBraces));
}

void HabitHistory::setHabit(Habit* habit)
{
    setHabitId(habit ? habit->id() : QUuid());
}
