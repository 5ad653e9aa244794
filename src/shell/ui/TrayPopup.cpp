#include "TrayPopup.h"

#include <QApplication>
#include <QCursor>
#include <QKeyEvent>
#include <QScreen>
#include <QVBoxLayout>

namespace {
// A click on the tray icon deactivates the popup before the icon reports the
// click; within this window the click is the one that closed it.
constexpr qint64 reopenGuardMs = 350;
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

void TrayPopup::showNear(const QRect& anchor)
{
    const QPoint point = anchor.isValid() ? anchor.center() : QCursor::pos();
    QScreen* screen = QGuiApplication::screenAt(point);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRect area = screen ? screen->availableGeometry() : QRect(QPoint(), DefaultSize);
    const QRect icon = anchor.isValid() ? anchor : QRect(point, QSize(1, 1));

    // Below the icon when the tray is at the top, above it otherwise; centred on
    // it horizontally and kept on the screen.
    QPoint origin(icon.center().x() - width() / 2, icon.bottom() + 4);
    if (origin.y() + height() > area.bottom())
        origin.setY(icon.top() - 4 - height());
    origin.setX(qBound(area.left(), origin.x(), area.right() - width()));
    origin.setY(qBound(area.top(), origin.y(), area.bottom() - height()));
    move(origin);
    show();
    raise();
    activateWindow();
}

bool TrayPopup::justClosed() const
{
    return m_closedAt.isValid() && m_closedAt.elapsed() < reopenGuardMs;
}

bool TrayPopup::ownsActiveWindow() const
{
    for (QWidget* w = QApplication::activeWindow(); w; w = w->parentWidget()) {
        if (w == this)
            return true;
    }
    return false;
}

bool TrayPopup::event(QEvent* event)
{
    if (event->type() == QEvent::WindowDeactivate && isVisible() && !ownsActiveWindow())
        hide();
    return QWidget::event(event);
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
