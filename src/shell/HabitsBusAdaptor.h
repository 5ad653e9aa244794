#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusArgument>
#include <QList>
#include <QString>

class Habit;
class HabitsService;
class ModelContext;

// One habit as the bus shows it: (name, value, target), D-Bus type (sii).
struct HabitEntry
{
    QString name;
    int value = 0;
    int target = 0;
};
Q_DECLARE_METATYPE(HabitEntry)
QDBusArgument& operator<<(QDBusArgument& out, const HabitEntry& habit);
const QDBusArgument& operator>>(const QDBusArgument& in, HabitEntry& habit);

// com.brenlow.tidewell.Habits: the habits in the widget's order, counted and reset
// by name. A name no habit has is a D-Bus error, never a new habit.
class HabitsBusAdaptor final : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.brenlow.tidewell.Habits")

public:
    HabitsBusAdaptor(QObject* parent, HabitsService& habits, ModelContext& context);

    static void registerTypes();

public slots:
    QList<HabitEntry> List();
    // The habit's value after the count; at its target the value stays.
    int Count(const QString& name);
    void Reset(const QString& name);

private:
    Habit* find(const QString& name);

    HabitsService& m_habits;
    ModelContext& m_context;
};
