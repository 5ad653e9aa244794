#include "TaskList.h"

#include "ModelContext.h"
#include "TaskItem.h"

TaskList::TaskList(const QString& name, qint64 order)
    : m_id(QUuid::createUuid())
    , m_name(name)
    , m_order(order)
{}

QList<TaskItem*> TaskList::tasks() const
{
    if (!context())
        return {};
    return context()->fetch<TaskItem>(FetchRequest::where("listId", m_id));
}
