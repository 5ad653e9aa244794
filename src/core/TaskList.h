#pragma once

#include "Record.h"

#include <QUuid>

class TaskItem;

// A named list of tasks, with at most one highlighted (focus) task.
class TaskList final : public Record
{
    Q_OBJECT
    Q_PROPERTY(QUuid id READ id WRITE setId NOTIFY idChanged)
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(qint64 order READ order WRITE setOrder NOTIFY orderChanged)
    // A plain value, not a relationship: a null id means no focus task.
    Q_PROPERTY(QUuid highlightedTaskId READ highlightedTaskId WRITE setHighlightedTaskId NOTIFY
                   highlightedTaskIdChanged)

public:
    static constexpr RecordKind Kind = RecordKind::TaskList;

    TaskList(const QString& name, qint64 order);
    TaskList() = default;

    RecordKind kind() const override { return Kind; }
    QString key() const override { return m_id.toString(QUuid::WithoutBraces); }

    QUuid id() const { return m_id; }
    QString name() const { return m_name; }
    qint64 order() const { return m_order; }
    QUuid highlightedTaskId() const { return m_highlightedTaskId; }

    void setId(const QUuid& v) { assign(m_id, v, &TaskList::idChanged); }
    void setName(const QString& v) { assign(m_name, v, &TaskList::nameChanged); }
    void setOrder(qint64 v) { assign(m_order, v, &TaskList::orderChanged); }
    void setHighlightedTaskId(const QUuid& v)
    {
        assign(m_highlightedTaskId, v, &TaskList::highlightedTaskIdChanged);
    }

    // The list's tasks, unordered (sort by `order` for display).
    QList<TaskItem*> tasks() const;

signals:
    void idChanged();
    void nameChanged();
    void orderChanged();
    void highlightedTaskIdChanged();

private:
    QUuid m_id;
    QString m_name;
    qint64 m_order = 0;
    QUuid m_highlightedTaskId;
};
