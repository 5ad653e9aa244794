#include "DraggablePanel.h"

#include "WindowStickiness.h"

#include <QApplication>
#include <QCursor>
#include <QMouseEvent>
#include <QWindow>

namespace {
constexpr int edgeGrip = 5;
// Two seconds of a pointer at rest over the panel end the checks until it moves.
constexpr int stillChecksBeforeRest = 8;
} // namespace

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
    // a native window. While hovered and the pointer moves, where it is is looked at
    // now and then; a pointer at rest costs no wake-ups.
    m_hoverCheck.setInterval(250);
    connect(&m_hoverCheck, &QTimer::timeout, this, [this] {
        const QPoint pointer = QCursor::pos();
        if (!frameGeometry().contains(pointer)) {
            m_hoverCheck.stop();
            m_hovered = false;
            emit hoverChanged(false);
        } else if (pointer != m_lastPointer) {
            m_lastPointer = pointer;
            m_stillChecks = 0;
        } else if (++m_stillChecks >= stillChecksBeforeRest) {
            m_hoverCheck.stop();
        }
    });
}

DraggablePanel::~DraggablePanel()
{
    // Panels may outlive the application object by a few steps at exit.
    if (QCoreApplication* app = QCoreApplication::instance())
        app->removeEventFilter(this);
}

void DraggablePanel::watchPointer()
{
    m_lastPointer = QCursor::pos();
    m_stillChecks = 0;
    m_hoverCheck.start();
}

QRect DraggablePanel::placedFrame() const
{
    return QRect(m_placedAt, size());
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
    if (event->type() == QEvent::MouseMove && m_hovered && !m_hoverCheck.isActive()) {
        auto* moved = qobject_cast<QWidget*>(watched);
        if (moved && moved->window() == this)
            watchPointer();
        return false;
    }
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
        m_settled = true;
        windowHandle()->startSystemMove();
        return true;
    }
    const Qt::Edges edges = edgesAt(mapFromGlobal(mouse->globalPosition().toPoint()));
    if (edges) {
        m_settled = true;
        windowHandle()->startSystemResize(edges);
        return true;
    }
    return false;
}

void DraggablePanel::enterEvent(QEnterEvent* event)
{
    QWidget::enterEvent(event);
    m_hovered = true;
    watchPointer();
    emit hoverChanged(true);
}

void DraggablePanel::leaveEvent(QEvent* event)
{
    QWidget::leaveEvent(event);
    m_hovered = false;
    m_hoverCheck.stop();
    emit hoverChanged(false);
}

void DraggablePanel::moveEvent(QMoveEvent* event)
{
    QWidget::moveEvent(event);
    // Once the window manager has put the panel where it was placed, or the user
    // moves it, where it is is where it was placed.
    m_settled = m_settled || pos() == m_placedAt;
    if (m_settled)
        m_placedAt = pos();
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
    m_settled = false;
    WindowStickiness::apply(this);
    m_askedWindowManager = false;
    if (windowHandle())
        windowHandle()->installEventFilter(this);
}
