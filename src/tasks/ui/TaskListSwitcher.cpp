#include "TaskListSwitcher.h"

#include "ListNameDialog.h"
#include "MenuText.h"
#include "ModelContext.h"
#include "SymbolIcon.h"
#include "TaskList.h"
#include "TasksService.h"
#include "Theme.h"

#include <QLineEdit>
#include <QMenu>
#include <QToolButton>

TaskListSwitcher::TaskListSwitcher(TasksService& service, ModelContext& context, QWidget* parent)
    : QWidget(parent)
    , m_service(service)
    , m_context(&context)
{
    setObjectName(QStringLiteral("listSwitcher"));
    setAccessibleName(tr("Task list"));

    m_button = new QToolButton(this);
    m_button->setObjectName(QStringLiteral("listSwitcherButton"));
    m_button->setAutoRaise(true);
    m_button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_button->setFont(Theme::font(Theme::Font::Subheadline, QFont::DemiBold));
    m_button->setIcon(SymbolIcon::icon(QStringLiteral("chevron.down")));
    m_button->setIconSize(QSize(10, 10));
    // Right-to-left only to put the chevron after the name.
    m_button->setLayoutDirection(Qt::RightToLeft);

    // Parented to the switcher, not the button, so it keeps the normal direction.
    m_menu = new QMenu(this);
    m_menu->setObjectName(QStringLiteral("listSwitcherMenu"));
    m_menu->setAccessibleName(tr("Task lists"));
    connect(m_menu, &QMenu::aboutToShow, this, &TaskListSwitcher::rebuildMenu);
    connect(m_button, &QToolButton::clicked, this,
            [this] { m_menu->popup(m_button->mapToGlobal(QPoint(0, m_button->height()))); });

    // No layout: a layout would not let the switcher be narrower than the whole
    // name, and the name is cut to the width the switcher gets instead.
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    updateLabel();
}

void TaskListSwitcher::setLists(const QList<TaskList*>& lists)
{
    m_lists.clear();
    for (TaskList* list : lists)
        m_lists.append(list);
    // A selection of no list (none yet, or one a pull replaced) is an empty one:
    // the first list is shown, never "—" beside lists that exist.
    if (!currentList() && !lists.isEmpty()) {
        setSelectedListId(lists.first()->id());
        return;
    }
    updateLabel();
}

void TaskListSwitcher::setSelectedListId(const QUuid& id)
{
    if (m_selectedListId == id)
        return;
    m_selectedListId = id;
    updateLabel();
    emit selectedListIdChanged();
}

TaskList* TaskListSwitcher::currentList() const
{
    if (m_selectedListId.isNull())
        return nullptr;
    for (const QPointer<TaskList>& list : m_lists) {
        if (list && list->context() && list->id() == m_selectedListId)
            return list;
    }
    return nullptr;
}

void TaskListSwitcher::updateLabel()
{
    const TaskList* current = currentList();
    const QString name = current ? current->name() : QStringLiteral("—");
    // The name takes what the switcher's width leaves beside the chevron.
    const int room = width() - m_button->iconSize().width() - 24;
    m_button->setText(MenuText::fitted(name, m_button->fontMetrics(), room));
    m_button->setAccessibleName(name);
    m_button->setToolTip(name);
    m_button->setGeometry(0, 0, std::min(m_button->sizeHint().width(), width()), height());
    updateGeometry();
}

QSize TaskListSwitcher::sizeHint() const
{
    return m_button->sizeHint();
}

QSize TaskListSwitcher::minimumSizeHint() const
{
    // Never wider than the room it is given: the name is cut instead.
    return {m_button->iconSize().width() + 48, m_button->sizeHint().height()};
}

void TaskListSwitcher::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    updateLabel();
}

QMenu* TaskListSwitcher::preparedMenu()
{
    rebuildMenu();
    return m_menu;
}

void TaskListSwitcher::rebuildMenu()
{
    m_menu->clear();
    const TaskList* current = currentList();
    for (const QPointer<TaskList>& list : std::as_const(m_lists)) {
        if (!list || !list->context())
            continue;
        QAction* action =
            m_menu->addAction(MenuText::fitted(list->name(), m_menu->fontMetrics(), 320));
        action->setObjectName(QStringLiteral("listEntry"));
        action->setCheckable(true);
        action->setChecked(list == current);
        const QUuid id = list->id();
        connect(action, &QAction::triggered, this, [this, id] { chooseList(id); });
    }
    m_menu->addSeparator();
    QAction* create = m_menu->addAction(tr("New list…"));
    create->setObjectName(QStringLiteral("newListAction"));
    connect(create, &QAction::triggered, this, &TaskListSwitcher::openNewListPrompt);
    if (current) {
        m_menu->addSeparator();
        QAction* rename = m_menu->addAction(tr("Rename current list…"));
        rename->setObjectName(QStringLiteral("renameListAction"));
        connect(rename, &QAction::triggered, this, &TaskListSwitcher::openRenameDialog);
        QAction* remove = m_menu->addAction(tr("Delete current list"));
        remove->setObjectName(QStringLiteral("deleteListAction"));
        connect(remove, &QAction::triggered, this, &TaskListSwitcher::deleteCurrentList);
    }
}

void TaskListSwitcher::chooseList(const QUuid& id)
{
    const TaskList* current = currentList();
    if (current && current->id() == id)
        return;
    setSelectedListId(id);
    m_service.listChosen();
}

void TaskListSwitcher::openNewListPrompt()
{
    if (m_dialog)
        return;
    auto* dialog = new ListNameDialog(ListNameDialog::Purpose::NewList, QString(), this);
    connect(dialog, &QDialog::accepted, this, [this, dialog] {
        const QString name = dialog->trimmedName();
        if (name.isEmpty() || !m_context)
            return;
        m_service.createList(name, *m_context); // the new list is the last by order
        const QList<TaskList*> lists = TasksService::listsInOrder(*m_context);
        if (!lists.isEmpty()) {
            setLists(lists);
            setSelectedListId(lists.constLast()->id());
        }
    });
    m_dialog = dialog;
    dialog->open();
}

void TaskListSwitcher::openRenameDialog()
{
    TaskList* current = currentList();
    if (!current || m_dialog)
        return;
    auto* dialog = new ListNameDialog(ListNameDialog::Purpose::Rename, current->name(), this);
    QPointer<TaskList> list(current);
    connect(dialog, &QDialog::accepted, this, [this, dialog, list] {
        const QString name = dialog->trimmedName();
        if (name.isEmpty() || !list || !m_context)
            return;
        m_service.renameList(list, name, *m_context);
        updateLabel();
    });
    m_dialog = dialog;
    dialog->open();
}

void TaskListSwitcher::deleteCurrentList()
{
    TaskList* current = currentList();
    if (!current || !m_context)
        return;
    const QUuid deleted = current->id();
    QUuid next;
    for (const QPointer<TaskList>& list : std::as_const(m_lists)) {
        if (list && list->context() && list->id() != deleted) {
            next = list->id();
            break;
        }
    }
    m_service.deleteList(current, *m_context);
    setSelectedListId(next);
}
