#include "TasksBusAdaptor.h"

#include "Blanks.h"
#include "DesktopBus.h"
#include "ModelContext.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "TasksService.h"

#include <QDBusMetaType>

QDBusArgument& operator<<(QDBusArgument& out, const TaskEntry& task)
{
    out.beginStructure();
    out << task.text << task.checked << task.focus;
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, TaskEntry& task)
{
    in.beginStructure();
    in >> task.text >> task.checked >> task.focus;
    in.endStructure();
    return in;
}

void TasksBusAdaptor::registerTypes()
{
    qDBusRegisterMetaType<TaskEntry>();
    qDBusRegisterMetaType<QList<TaskEntry>>();
}

TasksBusAdaptor::TasksBusAdaptor(QObject* parent, TasksService& tasks, ModelContext& context)
    : QDBusAbstractAdaptor(parent)
    , m_tasks(tasks)
    , m_context(context)
{
    registerTypes();
}

QStringList TasksBusAdaptor::Lists()
{
    m_tasks.bootstrap();
    QStringList names;
    for (const TaskList* list : m_tasks.listsInOrder(m_context))
        names.append(list->name());
    return names;
}

TaskList* TasksBusAdaptor::find(const QString& name)
{
    m_tasks.bootstrap();
    const QList<TaskList*> lists = m_tasks.listsInOrder(m_context);
    if (name.isEmpty() && !lists.isEmpty())
        return lists.first();
    for (TaskList* list : lists) {
        if (list->name() == name)
            return list;
    }
    DesktopBus::refuse(this, DesktopBus::Error::NoSuchList,
                       name.isEmpty()
                           ? QStringLiteral("There is no task list")
                           : QStringLiteral("No task list is named \u201c%1\u201d").arg(name));
    return nullptr;
}

QList<TaskEntry> TasksBusAdaptor::Tasks(const QString& name)
{
    QList<TaskEntry> entries;
    if (const TaskList* list = find(name)) {
        for (const TaskItem* task : TasksService::sortedTasks(list))
            entries.append(
                {task->header(), task->checked(), list->highlightedTaskId() == task->id()});
    }
    return entries;
}

int TasksBusAdaptor::Add(const QString& name, const QString& text)
{
    TaskList* list = find(name);
    if (!list)
        return -1;
    if (Blanks::isBlank(text)) {
        DesktopBus::refuse(this, DesktopBus::Error::EmptyTask,
                           QStringLiteral("A task needs some text"));
        return -1;
    }
    const TaskItem* added = m_tasks.addTask(text, list, m_context);
    return int(TasksService::sortedTasks(list).indexOf(added));
}

void TasksBusAdaptor::Check(const QString& name, int index)
{
    TaskList* list = find(name);
    if (!list)
        return;
    const QList<TaskItem*> tasks = TasksService::sortedTasks(list);
    if (index < 0 || index >= tasks.size()) {
        DesktopBus::refuse(this, DesktopBus::Error::NoSuchTask,
                           QStringLiteral("\u201c%1\u201d has no task %2 (it has %3)")
                               .arg(list->name())
                               .arg(index)
                               .arg(tasks.size()));
        return;
    }
    if (!tasks[index]->checked())
        m_tasks.toggleCheck(tasks[index], m_context);
}
