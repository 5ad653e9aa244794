#pragma once

#include "ModelContext.h"
#include "TaskItem.h"

#include <QAbstractScrollArea>
#include <QHash>
#include <QPointer>
#include <QUuid>

class TaskRow;
class TasksService;
class TooltipPanelService;

// The scrolling column of task rows. Only the rows in view exist as widgets
// (rows have one fixed height), so a list of thousands scrolls as lightly as a
// short one while every visible row stays a real, accessible widget.
class TaskRowList final : public QAbstractScrollArea
{
    Q_OBJECT

public:
    static constexpr int Spacing = 2;
    static constexpr int VerticalPadding = 4;

    TaskRowList(TasksService& service, TooltipPanelService& tooltips, ModelContext& context,
                QWidget* parent = nullptr);

    // Shows these tasks in this order. Rows of tasks already shown are kept, so an
    // unchanged task is not rebuilt.
    void setTasks(const QList<TaskItem*>& tasks);
    void setHighlightedTaskId(const QUuid& id);

    int count() const { return int(m_tasks.size()); }
    int rowHeight() const { return m_rowHeight; }
    // The row widget of a task in view, or null.
    TaskRow* rowFor(const TaskItem* task) const;
    QList<TaskRow*> rowsInView() const;

signals:
    void highlightRequested(TaskItem* task);

protected:
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    bool viewportEvent(QEvent* event) override;

private:
    void updateScrollRange();
    void layoutRows();
    TaskRow* createRow(TaskItem* task);

    TasksService& m_service;
    TooltipPanelService& m_tooltips;
    QPointer<ModelContext> m_context;
    QList<QPointer<TaskItem>> m_tasks;
    QHash<const TaskItem*, TaskRow*> m_rows;
    QUuid m_highlighted;
    int m_rowHeight = 0;
};
