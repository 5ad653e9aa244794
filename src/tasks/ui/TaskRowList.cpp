#include "TaskRowList.h"

#include "TaskItem.h"
#include "TaskRow.h"

#include <QEvent>
#include <QScrollBar>

TaskRowList::TaskRowList(TasksService& service, TooltipPanelService& tooltips,
                         ModelContext& context, QWidget* parent)
    : QAbstractScrollArea(parent)
    , m_service(service)
    , m_tooltips(tooltips)
    , m_context(&context)
{
    setObjectName(QStringLiteral("taskRows"));
    setAccessibleName(tr("Tasks"));
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    viewport()->setAutoFillBackground(false);

    // Every row has the height of an empty one: text is one elided line.
    TaskRow probe(service, tooltips, nullptr, context);
    m_rowHeight = probe.sizeHint().height();
    verticalScrollBar()->setSingleStep(m_rowHeight + Spacing);
}

void TaskRowList::setTasks(const QList<TaskItem*>& tasks)
{
    bool same = tasks.size() == m_tasks.size();
    for (qsizetype i = 0; same && i < tasks.size(); ++i)
        same = tasks.at(i) == m_tasks.at(i).data();
    if (same)
        return;
    m_tasks.clear();
    m_tasks.reserve(tasks.size());
    for (TaskItem* task : tasks)
        m_tasks.append(task);
    updateScrollRange();
    layoutRows();
}

void TaskRowList::setHighlightedTaskId(const QUuid& id)
{
    if (m_highlighted == id)
        return;
    m_highlighted = id;
    for (auto it = m_rows.cbegin(); it != m_rows.cend(); ++it) {
        const TaskItem* task = it.value()->task();
        it.value()->setHighlighted(task && !id.isNull() && task->id() == id);
    }
}

TaskRow* TaskRowList::rowFor(const TaskItem* task) const
{
    return m_rows.value(task);
}

QList<TaskRow*> TaskRowList::rowsInView() const
{
    QList<TaskRow*> rows;
    for (const QPointer<TaskItem>& task : m_tasks) {
        if (TaskRow* row = m_rows.value(task.data()))
            rows.append(row);
    }
    return rows;
}

void TaskRowList::resizeEvent(QResizeEvent* event)
{
    QAbstractScrollArea::resizeEvent(event);
    updateScrollRange();
    layoutRows();
}

void TaskRowList::scrollContentsBy(int, int)
{
    layoutRows();
}

bool TaskRowList::viewportEvent(QEvent* event)
{
    // Rows paint themselves; the viewport has nothing of its own to draw.
    if (event->type() == QEvent::Paint)
        return true;
    return QAbstractScrollArea::viewportEvent(event);
}

void TaskRowList::updateScrollRange()
{
    const int n = int(m_tasks.size());
    const int content = n == 0 ? 0 : 2 * VerticalPadding + n * m_rowHeight + (n - 1) * Spacing;
    const int page = viewport()->height();
    verticalScrollBar()->setPageStep(page);
    verticalScrollBar()->setRange(0, std::max(0, content - page));
}

void TaskRowList::layoutRows()
{
    const int stride = m_rowHeight + Spacing;
    const int top = verticalScrollBar()->value();
    const int height = viewport()->height();
    const int n = int(m_tasks.size());
    const int first = std::clamp((top - VerticalPadding) / stride, 0, n);
    const int last = std::clamp((top + height - VerticalPadding) / stride + 1, 0, n);

    QHash<const TaskItem*, TaskRow*> kept;
    for (int i = first; i < last; ++i) {
        TaskItem* task = m_tasks.at(i);
        if (!task)
            continue; // deleted; the next refresh drops it from the list
        TaskRow* row = m_rows.take(task);
        if (row && row->task() != task) { // a new task at a freed task's address
            row->hide();
            row->deleteLater();
            row = nullptr;
        }
        if (!row)
            row = createRow(task);
        row->setHighlighted(!m_highlighted.isNull() && task->id() == m_highlighted);
        row->setGeometry(0, VerticalPadding + i * stride - top, viewport()->width(), m_rowHeight);
        row->show();
        kept.insert(task, row);
    }
    // Rows that left the view (or whose task is gone) go away, and with them any
    // editing state and tooltip they had.
    for (TaskRow* row : std::as_const(m_rows)) {
        row->hide();
        row->deleteLater();
    }
    m_rows = kept;
}

TaskRow* TaskRowList::createRow(TaskItem* task)
{
    auto* row = new TaskRow(m_service, m_tooltips, task, *m_context, viewport());
    connect(row, &TaskRow::highlightToggled, this, [this, row] {
        if (row->task())
            emit highlightRequested(row->task());
    });
    return row;
}
