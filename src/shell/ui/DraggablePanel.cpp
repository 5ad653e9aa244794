#include "DraggablePanel.h"

#include "WindowStickiness.h"

#include <QApplication>
#include <QCursor>
#include <QMouseEvent>
#include <QWindow>

namespace {
constexpr int edgeGrip = 5;
}

DraggablePanel::DraggablePanel(QWidget* parent)
    // A window, not a tool window: some window managers (KWin) hide the tool
    // windows of an application while another one is active.
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                          Qt::WindowDoesNotAcceptFocus)
{
    // A glance at the panel, a click on a check box or a Ctrl-drag must leave the
    // keyboard with the application the user is typing in.
    setAttribute(Qt::WA_ShowWithoutActivating);
    // Rounded corners need a compositor; without one they would show black.
    setAttribute(Qt::WA_TranslucentBackground, WindowStickiness::canBlend());
    setAttribute(Qt::WA_DeleteOnClose, false);
    setMouseTracking(true);
    setWindowOpacity(0.75);
    // Clicks on the widget's children reach us first so Ctrl-drag works anywhere.
    qApp->installEventFilter(this);

    // The leave event does not always come: not after the window manager's own move
    // (Ctrl-drag), nor on some Wayland desktops when the pointer goes straight onto
    // a native window. While hovered, the pointer is looked at now and then.
    m_hoverCheck.setInterval(250);
    connect(&m_hoverCheck, &QTimer::timeout, this, [this] {
        if (!frameGeometry().contains(QCursor::pos())) {
            m_hoverCheck.stop();
            emit hoverChanged(false);
        }
    });
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

void DraggablePanel::acceptFocus(bool accept)
{
    if (!windowHandle())
        return;
    windowHandle()->setFlag(Qt::WindowDoesNotAcceptFocus, !accept);
    if (accept)
        windowHandle()->requestActivate();
}

bool DraggablePanel::eventFilter(QObject* watched, QEvent* event)
{
    // Exposed means mapped, and managed: now the window manager takes requests
    // about the window.
    if (watched == windowHandle() && event->type() == QEvent::Expose && !m_askedWindowManager &&
        windowHandle()->isExposed()) {
        m_askedWindowManager = true;
        WindowStickiness::request(this, m_placedAt);
        return false;
    }
    // Takes the keyboard only when needed: a double click starts editing a task in
    // place, which needs the keys; giving up activation hands them back.
    if (watched == this && event->type() == QEvent::WindowDeactivate) {
        acceptFocus(false);
        return false;
    }
    const bool doubleClick = event->type() == QEvent::MouseButtonDblClick;
    if (event->type() != QEvent::MouseButtonPress && !doubleClick)
        return false;
    auto* widget = qobject_cast<QWidget*>(watched);
    if (!widget || widget->window() != this || !windowHandle())
        return false;
    if (doubleClick) {
        acceptFocus(true);
        return false;
    }
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
    m_hoverCheck.start();
    emit hoverChanged(true);
}

void DraggablePanel::leaveEvent(QEvent* event)
{
    QWidget::leaveEvent(event);
    m_hoverCheck.stop();
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
    // The panel has no title bar: a close from the window manager is the session
    // ending (every window is closed at logout) or a keyboard shortcut, never the
    // user's own close, which is the panel's close button and forgets the placement.
    // So the window manager's close is refused and the placement stays.
    if (event->spontaneous()) {
        event->ignore();
        return;
    }
    QWidget::closeEvent(event);
}

void DraggablePanel::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // Before the window manager had a say (this comes before the window is mapped).
    m_placedAt = pos();
    WindowStickiness::apply(this);
    m_askedWindowManager = false;
    if (windowHandle())
        windowHandle()->installEventFilter(this);
}
