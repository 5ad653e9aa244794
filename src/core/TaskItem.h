#pragma once

#include "Record.h"

#include <QUuid>
#include <QVariant>

#include <optional>

class TaskList;

// One task in a list.
class TaskItem final : public Record
{
    Q_OBJECT
    Q_PROPERTY(QUuid id READ id WRITE setId NOTIFY idChanged)
    Q_PROPERTY(QString header READ header WRITE setHeader NOTIFY headerChanged)
    // Null when the task has no priority (tasks created here never do).
    Q_PROPERTY(
        QVariant priority READ priorityVariant WRITE setPriorityVariant NOTIFY priorityChanged)
    Q_PROPERTY(bool checked READ checked WRITE setChecked NOTIFY checkedChanged)
    Q_PROPERTY(qint64 order READ order WRITE setOrder NOTIFY orderChanged)
    Q_PROPERTY(QUuid listId READ listId WRITE setListId NOTIFY listChanged)

public:
    static constexpr RecordKind Kind = RecordKind::TaskItem;

    TaskItem(const QString& header, qint64 order, TaskList* list);
    TaskItem() = default;

    RecordKind kind() const override { return Kind; }
    QString key() const override { return m_id.toString(QUuid::WithoutBraces); }

    QUuid id() const { return m_id; }
    QString header() const { return m_header; }
    std::optional<qint64> priority() const { return m_priority; }
    bool checked() const { return m_checked; }
    qint64 order() const { return m_order; }
    QUuid listId() const { return m_listId; }
    TaskList* list() const;

    void setId(const QUuid& v) { assign(m_id, v, &TaskItem::idChanged); }
    void setHeader(const QString& v) { assign(m_header, v, &TaskItem::headerChanged); }
    void setPriority(std::optional<qint64> v) { assign(m_priority, v, &TaskItem::priorityChanged); }
    void setChecked(bool v) { assign(m_checked, v, &TaskItem::checkedChanged); }
    void setOrder(qint64 v) { assign(m_order, v, &TaskItem::orderChanged); }
    void setListId(const QUuid& v) { assign(m_listId, v, &TaskItem::listChanged); }
    void setList(TaskList* list);

signals:
    void idChanged();
    void headerChanged();
    void priorityChanged();
    void checkedChanged();
    void orderChanged();
    void listChanged();

private:
    QVariant priorityVariant() const;
    void setPriorityVariant(const QVariant& v);

    QUuid m_id;
    QString m_header;
    std::optional<qint64> m_priority;
    bool m_checked = false;
    qint64 m_order = 0;
    QUuid m_listId;
};
