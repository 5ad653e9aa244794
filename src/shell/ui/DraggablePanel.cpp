#include "DraggablePanel.h"

#include "WindowStickiness.h"

#include <QApplication>
#include <QMouseEvent>
#include <QWindow>

namespace {
constexpr int edgeGrip = 5;
}

DraggablePanel::DraggablePanel(QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
{
    setAttribute(Qt::WA_ShowWithoutActivating);
    // Rounded corners need a compositor; without one they would show black.
    setAttribute(Qt::WA_TranslucentBackground, WindowStickiness::canBlend());
    setAttribute(Qt::WA_DeleteOnClose, false);
    setMouseTracking(true);
    setWindowOpacity(0.75);
    // Clicks on the widget's children reach us first so Ctrl-drag works anywhere.
    qApp->installEventFilter(this);
}

DraggablePanel::~DraggablePanel()
{
    // Panels may outlive the application object by a few steps at exit.
    if (QCoreApplication* app = QCoreApplication::instance())
        app->removeEventFilter(this);
}

Qt::Edges DraggablePanel::edgesAt(const QPoint& p) const
{
    Qt::Edges edges;
    if (p.x() < edgeGrip)
        edges |= Qt::LeftEdge;
    if (p.x() >= width() - edgeGrip)
        edges |= Qt::RightEdge;
    if (p.y() < edgeGrip)
        edges |= Qt::TopEdge;
    if (p.y() >= height() - edgeGrip)
        edges |= Qt::BottomEdge;
    return edges;
}

bool DraggablePanel::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::MouseButtonPress)
        return false;
    auto* widget = qobject_cast<QWidget*>(watched);
    if (!widget || widget->window() != this || !windowHandle())
        return false;
    auto* mouse = static_cast<QMouseEvent*>(event);
    if (mouse->button() != Qt::LeftButton)
        return false;
    if (mouse->modifiers() & Qt::ControlModifier) {
        windowHandle()->startSystemMove();
        return true;
    }
    const Qt::Edges edges = edgesAt(mapFromGlobal(mouse->globalPosition().toPoint()));
    if (edges) {
        windowHandle()->startSystemResize(edges);
        return true;
    }
    return false;
}

void DraggablePanel::enterEvent(QEnterEvent* event)
{
    QWidget::enterEvent(event);
    emit hoverChanged(true);
}

void DraggablePanel::leaveEvent(QEvent* event)
{
    QWidget::leaveEvent(event);
    emit hoverChanged(false);
}

void DraggablePanel::moveEvent(QMoveEvent* event)
{
    QWidget::moveEvent(event);
    if (isVisible())
        emit moved();
}

void DraggablePanel::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    if (isVisible())
        emit resized();
}

void DraggablePanel::closeEvent(QCloseEvent* event)
{
    // Only the window manager's close counts as the user's; Qt also closes every
    // window (not spontaneously) while the application quits.
    if (event->spontaneous())
        emit closing();
    QWidget::closeEvent(event);
}

void DraggablePanel::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    WindowStickiness::apply(this);
}
