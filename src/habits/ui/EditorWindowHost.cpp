#include "EditorWindowHost.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

QWidget* EditorWindowHost::open(const QString& title, const QSize& size, QWidget* content,
                                QWidget* opener)
{
    QWidget* from = opener ? opener->window() : nullptr;
    // A dialog: tiling window managers (sway) float it instead of tiling it under the
    // floating panel it came from.
    Qt::WindowFlags flags = Qt::Dialog | Qt::WindowTitleHint | Qt::WindowCloseButtonHint;
    if (from && from->windowFlags().testFlag(Qt::WindowStaysOnTopHint))
        flags |= Qt::WindowStaysOnTopHint;
    content->setParent(nullptr);
    content->setWindowFlags(flags);
    content->setAttribute(Qt::WA_DeleteOnClose);
    content->setWindowTitle(title);
    content->resize(size);
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        content->move(area.center() - QPoint(size.width() / 2, size.height() / 2));
    }
    if (from && from->windowHandle()) {
        // A transient window stays above the one it came from on every window manager.
        content->winId();
        content->windowHandle()->setTransientParent(from->windowHandle());
    }
    content->show();
    content->raise();
    content->activateWindow();
    return content;
}
