#pragma once

#include "ModelContext.h"
#include "TaskItem.h"

#include <QColor>
#include <QPointer>
#include <QWidget>

class PanelHoverTooltip;
class TasksService;
class TooltipPanelService;
class QLabel;
class QLineEdit;
class QToolButton;

// One task: check box, focus marker, the text (edited in place on double click),
// the focus toggle and the delete button. It follows its task's own change
// signals, so a change to one task redraws only its row.
class TaskRow final : public QWidget
{
    Q_OBJECT

public:
    static constexpr int TooltipDelayMs = 300;

    TaskRow(TasksService& tasks, TooltipPanelService& tooltips, TaskItem* task,
            ModelContext& context, QWidget* parent = nullptr);

    static QColor focusColor() { return QColor(251, 191, 36); }

    TaskItem* task() const { return m_task; }
    bool isHighlighted() const { return m_highlighted; }
    void setHighlighted(bool highlighted);
    bool isEditing() const { return m_editing; }
    // The colour the text is drawn in, by the checked and focus rule.
    QColor textColor() const;
    PanelHoverTooltip* hoverTooltip() const { return m_tooltip; }

    QSize sizeHint() const override;

signals:
    // The focus button was pressed: the owner toggles the list's focus task.
    void highlightToggled();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    void beginEditing();
    void commitEditing();
    void updateText();
    void updateState();

    QPointer<TaskItem> m_task;
    TasksService& m_service;
    QPointer<ModelContext> m_context;
    bool m_highlighted = false;
    bool m_editing = false;

    QToolButton* m_checkButton = nullptr;
    QLabel* m_marker = nullptr;
    QLabel* m_text = nullptr;
    QLineEdit* m_editField = nullptr;
    QToolButton* m_focusButton = nullptr;
    QToolButton* m_deleteButton = nullptr;
    PanelHoverTooltip* m_tooltip = nullptr;
};
