#include "TasksWidgetView.h"

#include "Blanks.h"
#include "RoundedPanel.h"
#include "SymbolIcon.h"
#include "TaskList.h"
#include "TaskListSwitcher.h"
#include "TaskRowList.h"
#include "TasksService.h"
#include "Theme.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QShortcut>
#include <QStackedWidget>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace {
QFrame* divider(QWidget* parent)
{
    auto* line = new QFrame(parent);
    line->setObjectName(QStringLiteral("divider"));
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}
} // namespace

TasksWidgetView::TasksWidgetView(TasksService& service, ModelContext& context,
                                 TooltipPanelService& tooltips, bool viewOnly, QWidget* parent)
    : QWidget(parent)
    , m_service(service)
    , m_context(&context)
    , m_viewOnly(viewOnly)
{
    setObjectName(QStringLiteral("tasksWidget"));
    setAccessibleName(tr("Tasks"));

    auto* layout = new QVBoxLayout(this);
    const int padding = viewOnly ? 8 : 12;
    layout->setContentsMargins(padding, padding, padding, padding);
    layout->setSpacing(8);
    setMinimumSize(viewOnly ? QSize(240, 180) : QSize(280, 320));

    auto* header = new QWidget(this);
    buildHeader(header);
    layout->addWidget(header);
    layout->addWidget(divider(this));

    m_body = new QStackedWidget(this);
    m_body->setObjectName(QStringLiteral("tasksBody"));
    m_rows = new TaskRowList(m_service, tooltips, *m_context, m_body);
    m_emptyState = buildEmptyState();
    m_body->addWidget(m_rows);
    m_body->addWidget(m_emptyState);
    layout->addWidget(m_body, 1);
    connect(m_rows, &TaskRowList::highlightRequested, this, [this](TaskItem* task) {
        TaskList* list = currentList();
        if (!list || !m_context)
            return;
        const bool isFocus = list->highlightedTaskId() == task->id();
        m_service.highlight(isFocus ? nullptr : task, list, *m_context);
    });

    if (!viewOnly) {
        layout->addWidget(divider(this));
        layout->addWidget(buildInputBar());
    }

    m_refreshTimer = new QTimer(this);
    m_refreshTimer->setSingleShot(true);
    m_refreshTimer->setInterval(0);
    connect(m_refreshTimer, &QTimer::timeout, this, &TasksWidgetView::refresh);
    connect(m_context, &ModelContext::changed, this, &TasksWidgetView::storeChanged);
    connect(m_switcher, &TaskListSwitcher::selectedListIdChanged, this, &TasksWidgetView::refresh);
    refresh();
}

TasksWidgetView::~TasksWidgetView() = default;

void TasksWidgetView::buildHeader(QWidget* header)
{
    header->setObjectName(QStringLiteral("tasksHeader"));
    auto* row = new QHBoxLayout(header);
    row->setContentsMargins(0, 0, 0, 0);
    m_switcher = new TaskListSwitcher(m_service, *m_context, header);
    // All the width the actions button leaves; a long name is cut to fit it.
    row->addWidget(m_switcher, 1);
    if (m_viewOnly)
        return;

    m_listActionsButton = new QToolButton(header);
    m_listActionsButton->setObjectName(QStringLiteral("listActionsButton"));
    m_listActionsButton->setAccessibleName(tr("List actions"));
    m_listActionsButton->setToolTip(tr("List actions"));
    m_listActionsButton->setAutoRaise(true);
    m_listActionsButton->setIcon(SymbolIcon::icon(QStringLiteral("ellipsis.circle")));
    m_listActionsMenu = new QMenu(this);
    m_listActionsMenu->setObjectName(QStringLiteral("listActionsMenu"));
    m_listActionsMenu->setAccessibleName(tr("List actions"));
    QAction* finished = m_listActionsMenu->addAction(tr("Delete finished tasks"));
    finished->setObjectName(QStringLiteral("deleteFinishedAction"));
    connect(finished, &QAction::triggered, this, [this] {
        if (TaskList* list = currentList(); list && m_context)
            m_service.deleteFinishedTasks(list, *m_context);
    });
    QAction* all = m_listActionsMenu->addAction(tr("Delete all tasks"));
    all->setObjectName(QStringLiteral("deleteAllAction"));
    connect(all, &QAction::triggered, this, [this] {
        if (TaskList* list = currentList(); list && m_context)
            m_service.deleteAllTasks(list, *m_context);
    });
    connect(m_listActionsButton, &QToolButton::clicked, this, [this] {
        m_listActionsMenu->popup(
            m_listActionsButton->mapToGlobal(QPoint(0, m_listActionsButton->height())));
    });
    row->addWidget(m_listActionsButton);
}

QWidget* TasksWidgetView::buildEmptyState()
{
    auto* empty = new QWidget(m_body);
    empty->setObjectName(QStringLiteral("emptyState"));
    empty->setMinimumHeight(120);
    auto* column = new QVBoxLayout(empty);
    column->setSpacing(8);
    column->addStretch(1);

    const QFont titleFont = Theme::font(Theme::Font::Title);
    auto* icon = new QLabel(empty);
    icon->setObjectName(QStringLiteral("emptyStateIcon"));
    const int side = QFontMetrics(titleFont).height();
    icon->setPixmap(SymbolIcon::icon(QStringLiteral("checkmark.circle"), Theme::secondary())
                        .pixmap(side, side));
    icon->setAlignment(Qt::AlignCenter);
    column->addWidget(icon);

    auto* text = new QLabel(tr("No tasks yet"), empty);
    text->setObjectName(QStringLiteral("emptyStateText"));
    text->setAccessibleName(text->text());
    text->setFont(Theme::font(Theme::Font::Callout));
    text->setAlignment(Qt::AlignCenter);
    Theme::makeSecondary(text);
    column->addWidget(text);
    column->addStretch(1);
    return empty;
}

QWidget* TasksWidgetView::buildInputBar()
{
    m_inputBar = new RoundedPanel(Theme::secondary(0.08), 6, this);
    m_inputBar->setObjectName(QStringLiteral("inputBar"));
    auto* row = new QHBoxLayout(m_inputBar);
    row->setContentsMargins(8, 4, 8, 4);
    row->setSpacing(6);

    m_input = new QLineEdit(m_inputBar);
    m_input->setObjectName(QStringLiteral("newTaskField"));
    m_input->setPlaceholderText(tr("Add a task…"));
    m_input->setAccessibleName(tr("Add a task…"));
    m_input->setFrame(false);
    connect(m_input, &QLineEdit::returnPressed, this, &TasksWidgetView::addTask);
    row->addWidget(m_input, 1);

    m_addButton = new QToolButton(m_inputBar);
    m_addButton->setObjectName(QStringLiteral("addTaskButton"));
    m_addButton->setAccessibleName(tr("Add task"));
    m_addButton->setToolTip(tr("Add task"));
    m_addButton->setAutoRaise(true);
    m_addButton->setIcon(SymbolIcon::icon(QStringLiteral("plus.circle.fill"), Theme::accent()));
    // The button's own shortcut would press it after a click animation; this adds at once.
    auto* shortcut = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return), m_inputBar);
    connect(shortcut, &QShortcut::activated, this, &TasksWidgetView::addTask);
    connect(m_addButton, &QToolButton::clicked, this, &TasksWidgetView::addTask);
    row->addWidget(m_addButton);
    return m_inputBar;
}

QUuid TasksWidgetView::selectedListId() const
{
    return m_switcher->selectedListId();
}

TaskList* TasksWidgetView::currentList() const
{
    return m_switcher->currentList();
}

void TasksWidgetView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    m_service.bootstrap();
    if (m_context) {
        m_switcher->setLists(TasksService::listsInOrder(*m_context));
    }
    refresh();
}

void TasksWidgetView::storeChanged(RecordKind kind)
{
    if (kind == RecordKind::TaskList || kind == RecordKind::TaskItem)
        m_refreshTimer->start();
}

void TasksWidgetView::refresh()
{
    m_refreshTimer->stop();
    if (!m_context)
        return;
    m_switcher->setLists(TasksService::listsInOrder(*m_context));
    TaskList* list = currentList();
    if (!list) {
        m_rows->setTasks({});
        m_body->setCurrentWidget(m_emptyState);
        return;
    }
    m_rows->setHighlightedTaskId(list->highlightedTaskId());
    m_rows->setTasks(TasksService::sortedTasks(list));
    m_body->setCurrentWidget(m_rows);
}

void TasksWidgetView::addTask()
{
    TaskList* list = currentList();
    if (!list || !m_context)
        return;
    const QString text = Blanks::trimmed(m_input->text());
    if (text.isEmpty())
        return;
    m_service.addTask(text, list, *m_context);
    m_input->clear();
}
