#include "EditorWindowHost.h"

#include <QGuiApplication>
#include <QScreen>

QList<QPointer<QWidget>>& EditorWindowHost::openWindows()
{
    static QList<QPointer<QWidget>> windows;
    return windows;
}

QWidget* EditorWindowHost::open(const QString& title, const QSize& size, QWidget* content)
{
    content->setParent(nullptr);
    content->setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    content->setAttribute(Qt::WA_DeleteOnClose);
    content->setWindowTitle(title);
    content->resize(size);
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        content->move(area.center() - QPoint(size.width() / 2, size.height() / 2));
    }
    openWindows().append(content);
    QObject::connect(content, &QObject::destroyed, [](QObject* gone) {
        openWindows().removeIf([gone](const QPointer<QWidget>& w) { return !w || w == gone; });
    });
    content->show();
    content->raise();
    content->activateWindow();
    return content;
}
