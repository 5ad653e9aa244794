#pragma once

#include "ModelContext.h"

#include <QPointer>
#include <QUuid>
#include <QWidget>

class QLineEdit;
class QMenu;
class QStackedWidget;
class QTimer;
class QToolButton;
class TaskList;
class TaskListSwitcher;
class TaskRowList;
class TasksService;
class TooltipPanelService;

// The tasks widget: one list at a time with its switcher, the list actions, the
// rows and the input bar. In view-only form (floating panels) the list actions
// and the input bar are hidden; rows stay fully usable.
class TasksWidgetView final : public QWidget
{
    Q_OBJECT

public:
    TasksWidgetView(TasksService& service, ModelContext& context, TooltipPanelService& tooltips,
                    bool viewOnly, QWidget* parent = nullptr);
    ~TasksWidgetView() override;

    bool isViewOnly() const { return m_viewOnly; }
    QUuid selectedListId() const;
    TaskList* currentList() const;

    TaskListSwitcher* switcher() const { return m_switcher; }
    TaskRowList* rows() const { return m_rows; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void buildHeader(QWidget* header);
    QWidget* buildEmptyState();
    QWidget* buildInputBar();
    void storeChanged(RecordKind kind);
    void refresh();
    void addTask();

    TasksService& m_service;
    QPointer<ModelContext> m_context;
    const bool m_viewOnly;

    TaskListSwitcher* m_switcher = nullptr;
    QToolButton* m_listActionsButton = nullptr;
    QMenu* m_listActionsMenu = nullptr;
    QStackedWidget* m_body = nullptr;
    TaskRowList* m_rows = nullptr;
    QWidget* m_emptyState = nullptr;
    QWidget* m_inputBar = nullptr;
    QLineEdit* m_input = nullptr;
    QToolButton* m_addButton = nullptr;
    // Coalesces the store's change signals into one refresh per event-loop turn.
    QTimer* m_refreshTimer = nullptr;
};
