#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusArgument>
#include <QList>
#include <QString>
#include <QStringList>

class ModelContext;
class TaskList;
class TasksService;

// One task as the bus shows it: (text, checked, focus), D-Bus type (sbb).
struct TaskEntry
{
    QString text;
    bool checked = false;
    bool focus = false;
};
Q_DECLARE_METATYPE(TaskEntry)
QDBusArgument& operator<<(QDBusArgument& out, const TaskEntry& task);
const QDBusArgument& operator>>(const QDBusArgument& in, TaskEntry& task);

// com.brenlow.tidewell.Tasks: the task lists and their tasks in the widget's
// order. An empty list name means the first list; indexes count from 0.
class TasksBusAdaptor final : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.brenlow.tidewell.Tasks")

public:
    TasksBusAdaptor(QObject* parent, TasksService& tasks, ModelContext& context);

    static void registerTypes();

public slots:
    QStringList Lists();
    QList<TaskEntry> Tasks(const QString& list);
    // The new task's index.
    int Add(const QString& list, const QString& text);
    void Check(const QString& list, int index);

private:
    TaskList* find(const QString& name);

    TasksService& m_tasks;
    ModelContext& m_context;
};
