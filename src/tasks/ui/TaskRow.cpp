#include "TaskRow.h"

#include "Blanks.h"
#include "IconButton.h"
#include "ModelContext.h"
#include "PanelHoverTooltip.h"
#include "SymbolIcon.h"
#include "TaskItem.h"
#include "TasksService.h"
#include "Theme.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QSignalBlocker>
#include <QTimer>
#include <QToolButton>

namespace {
constexpr int checkIconSize = 16;

// The row's own glyphs, drawn so they read the same on every icon theme.
QIcon rowIcon(const QString& symbol, const QColor& color, int side)
{
    QPixmap pm(side * 2, side * 2);
    pm.setDevicePixelRatio(2);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF box(1.5, 1.5, side - 3, side - 3);
    QPen pen(color, 1.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    if (symbol == u"square") {
        p.setPen(pen);
        p.drawRoundedRect(box, 3, 3);
    } else if (symbol == u"checkmark.square.fill") {
        QPainterPath frame;
        frame.addRoundedRect(box, 3, 3);
        p.fillPath(frame, color);
        QPainterPath tick(QPointF(side * 0.28, side * 0.52));
        tick.lineTo(side * 0.44, side * 0.68);
        tick.lineTo(side * 0.74, side * 0.34);
        p.setPen(QPen(Qt::white, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawPath(tick);
    } else if (symbol == u"highlighter") {
        // A marker pen drawn at a slant, its tip towards the bottom left.
        p.setPen(pen);
        p.translate(side / 2.0, side / 2.0);
        p.rotate(45);
        const qreal w = side * 0.3;
        p.drawRoundedRect(QRectF(-w / 2, -side * 0.42, w, side * 0.58), 1.5, 1.5);
        QPainterPath tip(QPointF(-w / 2, side * 0.16));
        tip.lineTo(-w / 4, side * 0.38);
        tip.lineTo(w / 4, side * 0.38);
        tip.lineTo(w / 2, side * 0.16);
        p.drawPath(tip);
    }
    return QIcon(pm);
}

QToolButton* makeButton(QWidget* parent, const QString& objectName)
{
    auto* button = new IconButton(parent);
    button->setObjectName(objectName);
    button->setCursor(Qt::PointingHandCursor);
    return button;
}
} // namespace

TaskRow::TaskRow(TasksService& tasks, TooltipPanelService& tooltips, TaskItem* task,
                 ModelContext& context, QWidget* parent)
    : QWidget(parent)
    , m_task(task)
    , m_service(tasks)
    , m_context(&context)
{
    setObjectName(QStringLiteral("taskRow"));

    m_checkButton = makeButton(this, QStringLiteral("checkButton"));
    m_checkButton->setCheckable(true);
    m_checkButton->setIconSize(QSize(checkIconSize, checkIconSize));
    m_checkButton->setAccessibleName(tr("Done"));

    m_marker = new QLabel(QStringLiteral(">>>"), this);
    m_marker->setObjectName(QStringLiteral("focusMarker"));
    m_marker->setAccessibleName(tr("Focus task"));
    m_marker->setToolTip(tr("Focus task"));
    QFont markerFont = Theme::monospacedDigits(10, QFont::Bold);
    m_marker->setFont(markerFont);
    QPalette markerPalette = m_marker->palette();
    markerPalette.setColor(QPalette::WindowText, focusColor());
    m_marker->setPalette(markerPalette);
    // Rows sit on a scroll viewport, whose Base background would make labels draw in Text.
    m_marker->setForegroundRole(QPalette::WindowText);

    m_text = new QLabel(this);
    m_text->setObjectName(QStringLiteral("taskText"));
    m_text->setTextFormat(Qt::PlainText); // a task's text is never markup
    m_text->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_text->setFont(Theme::font(Theme::Font::Body));
    m_text->setForegroundRole(QPalette::WindowText);

    m_editField = new QLineEdit(this);
    m_editField->setObjectName(QStringLiteral("editField"));
    m_editField->setAccessibleName(tr("Task text"));
    m_editField->setFrame(false);
    m_editField->hide();
    connect(m_editField, &QLineEdit::returnPressed, this, &TaskRow::commitEditing);

    m_focusButton = makeButton(this, QStringLiteral("focusButton"));
    m_focusButton->setIconSize(QSize(14, 14));
    m_deleteButton = makeButton(this, QStringLiteral("deleteButton"));
    m_deleteButton->setIconSize(QSize(13, 13));
    m_deleteButton->setToolTip(tr("Delete"));
    m_deleteButton->setAccessibleName(tr("Delete"));
    m_deleteButton->setIcon(SymbolIcon::icon(QStringLiteral("trash"), Theme::secondary(0.5)));

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 4, 8, 4);
    layout->setSpacing(6);
    layout->addWidget(m_checkButton);
    layout->addWidget(m_marker);
    layout->addWidget(m_text, 1);
    layout->addWidget(m_editField, 1);
    layout->addSpacing(4);
    layout->addWidget(m_focusButton);
    layout->addWidget(m_deleteButton);

    m_tooltip =
        new PanelHoverTooltip(tooltips, this, task ? task->header() : QString(), TooltipDelayMs);

    // toggled, not clicked: assistive technologies toggle without clicking.
    connect(m_checkButton, &QToolButton::toggled, this, [this] {
        if (m_task && m_context)
            m_service.toggleCheck(m_task, *m_context);
        updateState(); // the button's own toggle must not outrun the task
    });
    connect(m_focusButton, &QToolButton::clicked, this, &TaskRow::highlightToggled);
    connect(m_deleteButton, &QToolButton::clicked, this, [this] {
        if (m_task && m_context)
            m_service.deleteTask(m_task, *m_context);
    });

    if (task) {
        connect(task, &TaskItem::headerChanged, this, &TaskRow::updateText);
        connect(task, &TaskItem::checkedChanged, this, &TaskRow::updateState);
    }
    updateText();
    updateState();
}

void TaskRow::setHighlighted(bool highlighted)
{
    if (m_highlighted == highlighted)
        return;
    m_highlighted = highlighted;
    updateState();
}

QColor TaskRow::textColor() const
{
    if (m_task && m_task->checked())
        return Theme::secondary();
    if (m_highlighted)
        return focusColor();
    return palette().color(QPalette::WindowText);
}

QSize TaskRow::sizeHint() const
{
    // The same height whether the text or the edit field shows, so rows never jump.
    const QSize base = QWidget::sizeHint();
    return {base.width(), std::max(base.height(), m_editField->sizeHint().height() + 8)};
}

void TaskRow::paintEvent(QPaintEvent*)
{
    if (!m_highlighted)
        return;
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    QColor tint = focusColor();
    tint.setAlphaF(0.1);
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()), 6, 6);
    p.fillPath(path, tint);
}

void TaskRow::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    updateText();
}

void TaskRow::mouseDoubleClickEvent(QMouseEvent* event)
{
    if (!m_editing && m_text->geometry().contains(event->position().toPoint())) {
        beginEditing();
        event->accept();
        return;
    }
    QWidget::mouseDoubleClickEvent(event);
}

void TaskRow::beginEditing()
{
    if (!m_task)
        return;
    m_editField->setText(m_task->header());
    m_editing = true;
    m_text->hide();
    m_editField->show();
    // Focus on the next turn, once the field is laid out and visible.
    QTimer::singleShot(0, m_editField, [field = m_editField] { field->setFocus(); });
}

void TaskRow::commitEditing()
{
    const QString text = Blanks::trimmed(m_editField->text());
    if (!text.isEmpty() && m_task && m_context)
        m_service.editTask(m_task, text, *m_context);
    m_editing = false;
    m_editField->hide();
    m_text->show();
    updateText();
}

void TaskRow::updateText()
{
    const QString header = m_task ? m_task->header() : QString();
    setAccessibleName(header);
    m_tooltip->setText(header);
    const int width = std::max(0, m_text->width());
    m_text->setText(m_text->fontMetrics().elidedText(header, Qt::ElideRight, width));
    m_text->setAccessibleName(header);
}

void TaskRow::updateState()
{
    const bool checked = m_task && m_task->checked();
    {
        const QSignalBlocker quiet(m_checkButton); // mirrors the task, is no user toggle
        m_checkButton->setChecked(checked);
    }
    m_checkButton->setIcon(
        checked ? rowIcon(QStringLiteral("checkmark.square.fill"), Theme::accent(), checkIconSize)
                : rowIcon(QStringLiteral("square"), Theme::secondary(), checkIconSize));
    m_marker->setVisible(m_highlighted && !checked);

    QFont font = m_text->font();
    font.setStrikeOut(checked);
    m_text->setFont(font);
    QPalette textPalette = m_text->palette();
    textPalette.setColor(QPalette::WindowText, textColor());
    m_text->setPalette(textPalette);

    const QString focusTip = m_highlighted ? tr("Remove focus") : tr("Set as focus task");
    m_focusButton->setToolTip(focusTip);
    m_focusButton->setAccessibleName(focusTip);
    m_focusButton->setIcon(rowIcon(QStringLiteral("highlighter"),
                                   m_highlighted ? focusColor() : Theme::secondary(0.5), 14));
    updateText();
    update();
}
