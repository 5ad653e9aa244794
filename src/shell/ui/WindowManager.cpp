#include "WindowManager.h"

#include "AppServices.h"
#include "DataStore.h"
#include "DesktopPanelHost.h"
#include "DraggablePanel.h"
#include "HabitsWidgetView.h"
#include "PlaceholderWidgetView.h"
#include "PlacementService.h"
#include "PomodoroWidgetView.h"
#include "StatusItemHost.h"
#include "StoreNotice.h"
#include "TasksWidgetView.h"
#include "TooltipPanelService.h"
#include "TrayPopup.h"
#include "WidgetPlacement.h"
#include "WidgetRegistry.h"

#include <QCoreApplication>
#include <QWidget>

WindowManager::WindowManager(AppServices& services, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_tooltips(new TooltipPanelService(this))
{}

WindowManager::~WindowManager()
{
    qDeleteAll(m_statusHosts);
    qDeleteAll(m_panelHosts);
    for (const QPointer<WidgetWindow>& window : std::as_const(m_windows))
        delete window.data();
}

WidgetWindow* WindowManager::openWindow(const QString& widgetId)
{
    WidgetWindow* window = m_windows.value(widgetId);
    if (!window) {
        window = new WidgetWindow(widgetId, noticed(widgetView(widgetId, false)));
        m_windows.insert(widgetId, window);
    }
    window->bringForward();
    return window;
}

QWidget* WindowManager::widgetView(const QString& widgetId, bool viewOnly) const
{
    if (m_viewFactory)
        return m_viewFactory(widgetId, viewOnly);
    if (widgetId == u"pomodoro")
        return new PomodoroWidgetView(m_services.timer(), viewOnly);
    if (widgetId == u"habits")
        return new HabitsWidgetView(m_services.habits(), m_services.store().mainContext(),
                                    viewOnly);
    if (widgetId == u"tasks")
        return new TasksWidgetView(m_services.tasks(), m_services.store().mainContext(),
                                   *m_tooltips, viewOnly);
    if (const WidgetMeta* meta = WidgetRegistry::find(widgetId))
        return new PlaceholderWidgetView(meta->name);
    return new PlaceholderWidgetView(QStringLiteral("Unknown widget"));
}

QWidget* WindowManager::noticed(QWidget* view) const
{
    return new StoreNotice(m_services.store().mainContext(), view);
}

void WindowManager::restoreFromPersistence()
{
    for (const WidgetPlacement* placement : m_services.placements().restore())
        sync(placement->widgetId(), placement->inStatusBar(), placement->inFloating());
}

void WindowManager::sync(const QString& widgetId, bool inStatusBar, bool inFloating)
{
    if (inStatusBar && !m_statusHosts.contains(widgetId)) {
        auto* host = new StatusItemHost(
            widgetId, [this, widgetId] { return noticed(widgetView(widgetId, false)); },
            m_services.timer(), this);
        connect(host, &StatusItemHost::openHubRequested, this, &WindowManager::openHubRequested);
        connect(host, &StatusItemHost::historyRequested, this, &WindowManager::historyRequested);
        connect(host, &StatusItemHost::quitRequested, this, &WindowManager::quitRequested);
        m_statusHosts.insert(widgetId, host);
    } else if (!inStatusBar) {
        if (StatusItemHost* host = m_statusHosts.take(widgetId)) {
            host->tearDown();
            host->deleteLater();
        }
    }

    if (inFloating && !m_panelHosts.contains(widgetId)) {
        auto* host = new DesktopPanelHost(m_services.placements(), widgetId,
                                          WidgetRegistry::defaultPanelSize(widgetId),
                                          noticed(widgetView(widgetId, true)), this);
        connect(host, &DesktopPanelHost::closedByUser, this, &WindowManager::handlePanelClosed);
        m_panelHosts.insert(widgetId, host);
    } else if (!inFloating) {
        if (DesktopPanelHost* host = m_panelHosts.take(widgetId)) {
            host->tearDown();
            host->deleteLater();
        }
    }
}

void WindowManager::handlePanelClosed(const QString& widgetId)
{
    if (DesktopPanelHost* host = m_panelHosts.take(widgetId)) {
        host->tearDown();
        host->deleteLater();
    }
    m_services.placements().panelClosed(widgetId);
}
