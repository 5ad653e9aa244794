#include "HabitsBusAdaptor.h"

#include "DesktopBus.h"
#include "Habit.h"
#include "HabitsService.h"
#include "ModelContext.h"

#include <QDBusMetaType>

QDBusArgument& operator<<(QDBusArgument& out, const HabitEntry& habit)
{
    out.beginStructure();
    out << habit.name << habit.value << habit.target;
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, HabitEntry& habit)
{
    in.beginStructure();
    in >> habit.name >> habit.value >> habit.target;
    in.endStructure();
    return in;
}

void HabitsBusAdaptor::registerTypes()
{
    qDBusRegisterMetaType<HabitEntry>();
    qDBusRegisterMetaType<QList<HabitEntry>>();
}

HabitsBusAdaptor::HabitsBusAdaptor(QObject* parent, HabitsService& habits, ModelContext& context)
    : QDBusAbstractAdaptor(parent)
    , m_habits(habits)
    , m_context(context)
{
    registerTypes();
}

QList<HabitEntry> HabitsBusAdaptor::List()
{
    m_habits.bootstrap(); // a new day starts from zero here too
    QList<HabitEntry> entries;
    for (const Habit* habit : m_habits.habitsInOrder(m_context))
        entries.append({habit->name(), int(std::min<qint64>(habit->currentValue(), INT_MAX)),
                        int(std::min<qint64>(habit->maxValue(), INT_MAX))});
    return entries;
}

Habit* HabitsBusAdaptor::find(const QString& name)
{
    m_habits.bootstrap();
    Habit* habit = m_habits.findByName(name, m_context);
    if (!habit)
        DesktopBus::refuse(this, DesktopBus::Error::NoSuchHabit,
                           QStringLiteral("No habit is named \u201c%1\u201d").arg(name));
    return habit;
}

int HabitsBusAdaptor::Count(const QString& name)
{
    Habit* habit = find(name);
    if (!habit)
        return 0;
    m_habits.increment(habit, m_context);
    return int(std::min<qint64>(habit->currentValue(), INT_MAX));
}

void HabitsBusAdaptor::Reset(const QString& name)
{
    if (Habit* habit = find(name))
        m_habits.reset(habit, m_context);
}
