#pragma once

#include "ListNameDialog.h"
#include "ModelContext.h"
#include "TaskList.h"

#include <QPointer>
#include <QUuid>
#include <QWidget>

class QMenu;
class TasksService;
class QToolButton;

// The list picker in the widget's header: a menu button named after the current
// list, offering the other lists, a new list, and renaming or deleting the
// current one. It holds the widget's selection.
class TaskListSwitcher final : public QWidget
{
    Q_OBJECT

public:
    TaskListSwitcher(TasksService& service, ModelContext& context, QWidget* parent = nullptr);

    // The lists to offer, already in display order.
    void setLists(const QList<TaskList*>& lists);

    QUuid selectedListId() const { return m_selectedListId; }
    void setSelectedListId(const QUuid& id);
    // The list whose id is selected, or null when none is or it no longer exists.
    TaskList* currentList() const;

    // The menu as it would show now. It is rebuilt only when it opens, never
    // while one of its entries is being handled.
    QMenu* preparedMenu();
    // The open new-list prompt or rename dialog, if any.
    ListNameDialog* openDialog() const { return m_dialog; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

signals:
    void selectedListIdChanged();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void rebuildMenu();
    void updateLabel();
    void chooseList(const QUuid& id);
    void openNewListPrompt();
    void openRenameDialog();
    void deleteCurrentList();

    TasksService& m_service;
    QPointer<ModelContext> m_context;
    QList<QPointer<TaskList>> m_lists;
    QUuid m_selectedListId;
    QToolButton* m_button = nullptr;
    QMenu* m_menu = nullptr;
    QPointer<ListNameDialog> m_dialog;
};
