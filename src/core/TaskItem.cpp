#include "TaskItem.h"

#include "ModelContext.h"
#include "TaskList.h"

TaskItem::TaskItem(const QString& header, qint64 order, TaskList* list)
    : m_id(QUuid::createUuid())
    , m_header(header)
    , m_order(order)
    , m_listId(list ? list->id() : QUuid())
{}

TaskList* TaskItem::list() const
{
    if (!context() || m_listId.isNull())
        return nullptr;
    return context()->find<TaskList>(m_listId.toString(QUuid::WithoutBraces));
}

void TaskItem::setList(TaskList* list)
{
    setListId(list ? list->id() : QUuid());
}

QVariant TaskItem::priorityVariant() const
{
    return m_priority ? QVariant::fromValue(*m_priority) : QVariant();
}

void TaskItem::setPriorityVariant(const QVariant& v)
{
    setPriority(v.isNull() ? std::nullopt : std::optional<qint64>(v.toLongLong()));
}
