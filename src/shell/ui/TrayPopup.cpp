#include "TrayPopup.h"

#include "WindowStickiness.h"

#include <QApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>

namespace {
// A click on the tray icon deactivates the popup before the icon reports the
// click; within this window the click is the one that closed it.
constexpr qint64 reopenGuardMs = 350;
// How long the window manager has to activate a window after a dialog closes.
constexpr int dialogSettleMs = 150;
} // namespace

TrayPopup::TrayPopup(const QString& title, QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
{
    setWindowTitle(title);
    setAccessibleName(title);
    setObjectName(QStringLiteral("trayPopup"));
    setFixedSize(DefaultSize);
    setAttribute(Qt::WA_DeleteOnClose, false);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
}

void TrayPopup::setContent(QWidget* content)
{
    if (m_content)
        m_content->deleteLater();
    m_content = content;
    layout()->addWidget(content);
}

QRect TrayPopup::placement(const QRect& anchor, const QRect& screen, const QRect& available,
                           const QSize& size)
{
    QRect icon = anchor;
    if (!icon.isValid()) {
        // The tray said nowhere: its panel is where the work area stops short of
        // the screen, and trays sit at its right-hand end. Without such a panel,
        // the top right corner, where most bars keep their tray.
        const bool bottom = available.bottom() < screen.bottom();
        const bool left =
            available.left() > screen.left() && !bottom && available.top() == screen.top();
        const bool right =
            available.right() < screen.right() && !bottom && available.top() == screen.top();
        if (left)
            icon = QRect(available.left() - 1, available.bottom() - 1, 1, 1);
        else if (right)
            icon = QRect(available.right() + 1, available.bottom() - 1, 1, 1);
        else if (bottom)
            icon = QRect(available.right() - 1, available.bottom() + 1, 1, 1);
        else
            icon = QRect(available.right() - 1, available.top() - 1, 1, 1);
    }
    const QRect area = available.isValid() ? available : screen;
    QPoint origin;
    if (icon.left() < area.left() || icon.right() > area.right()) {
        // A panel at the side: beside it, level with the icon.
        origin = QPoint(icon.left() < area.left() ? area.left() + 4
                                                  : area.right() + 1 - 4 - size.width(),
                        icon.center().y() - size.height() / 2);
    } else {
        // Below the icon when the tray is at the top, above it otherwise; centred
        // on it horizontally.
        origin = QPoint(icon.center().x() - size.width() / 2, icon.bottom() + 4);
        if (origin.y() + size.height() > area.bottom())
            origin.setY(icon.top() - 4 - size.height());
    }
    origin.setX(qBound(area.left(), origin.x(), area.right() + 1 - size.width()));
    origin.setY(qBound(area.top(), origin.y(), area.bottom() + 1 - size.height()));
    return QRect(origin, size);
}

void TrayPopup::showNear(const QRect& anchor)
{
    QScreen* screen = anchor.isValid() ? QGuiApplication::screenAt(anchor.center()) : nullptr;
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRect whole = screen ? screen->geometry() : QRect(QPoint(), DefaultSize);
    const QRect available = screen ? screen->availableGeometry() : whole;
    const QPoint at = placement(anchor, whole, available, size()).topLeft();
    move(at);
    show();
    WindowStickiness::keepAt(this, at);
    if (!anchor.isValid()) {
        // Where X11 clients are not told of the bars (sway), the tray's end of the bar
        // is found again once the windowing system says where they are.
        WindowStickiness::workArea(this, [this, whole](const QRect& area) {
            if (!isVisible())
                return;
            const QPoint there = placement({}, whole, area, size()).topLeft();
            move(there);
            WindowStickiness::keepAt(this, there);
        });
    }
    raise();
    activateWindow();
}

bool TrayPopup::justClosed() const
{
    return m_closedAt.isValid() && m_closedAt.elapsed() < reopenGuardMs;
}

bool TrayPopup::ownsActiveWindow() const
{
    const QWidget* active = QApplication::activeWindow();
    return active && (active == this || isAncestorWindowOf(active));
}

bool TrayPopup::event(QEvent* event)
{
    if (event->type() == QEvent::WindowDeactivate && isVisible() && !ownsActiveWindow())
        hide();
    // While shown, a dialog of its own closing is watched for (see eventFilter).
    if (event->type() == QEvent::Show)
        qApp->installEventFilter(this);
    else if (event->type() == QEvent::Hide)
        qApp->removeEventFilter(this);
    return QWidget::event(event);
}

bool TrayPopup::eventFilter(QObject* watched, QEvent* event)
{
    // A dialog opened from the popup closes: window managers hand activation to
    // whichever window they like, often none, and a popup left inactive would never
    // hear of the next outside click. The popup takes activation back instead.
    if (event->type() == QEvent::Hide && watched != this) {
        auto* window = qobject_cast<QWidget*>(watched);
        if (window && window->isWindow() && isAncestorWindowOf(window))
            QTimer::singleShot(dialogSettleMs, this, [this] {
                // Only when nothing of the app's is active: a window the window
                // manager chose (the hub) keeps the keyboard.
                if (isVisible() && !QApplication::activeWindow()) {
                    raise();
                    activateWindow();
                }
            });
    }
    return false;
}

bool TrayPopup::isAncestorWindowOf(const QWidget* window) const
{
    for (const QWidget* w = window->parentWidget(); w; w = w->parentWidget()) {
        if (w == this)
            return true;
    }
    return false;
}

void TrayPopup::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        hide();
        return;
    }
    QWidget::keyPressEvent(event);
}

void TrayPopup::hideEvent(QHideEvent* event)
{
    m_closedAt.start();
    QWidget::hideEvent(event);
    emit closed();
}
