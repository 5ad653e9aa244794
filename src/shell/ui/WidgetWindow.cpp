#include "WidgetWindow.h"

#include "WidgetRegistry.h"

#include <QGuiApplication>
#include <QScreen>
#include <QVBoxLayout>

WidgetWindow::WidgetWindow(const QString& widgetId, QWidget* view, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_widgetId(widgetId)
{
    setObjectName(QStringLiteral("widgetWindow_") + widgetId);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(titleFor(widgetId));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(view);
    resize(view->minimumSizeHint().expandedTo(QSize(320, 400)));
}

QString WidgetWindow::titleFor(const QString& widgetId)
{
    const WidgetMeta* meta = WidgetRegistry::find(widgetId);
    return (meta ? meta->name : widgetId) + QStringLiteral(" — Tidewell");
}

void WidgetWindow::bringForward()
{
    if (!isVisible()) {
        if (const QScreen* screen = QGuiApplication::primaryScreen())
            move(screen->availableGeometry().center() - rect().center());
    }
    show();
    setWindowState((windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    raise();
    activateWindow();
}
