#include "WindowManager.h"

#include "DataStore.h"
#include "DesktopPanelHost.h"
#include "DraggablePanel.h"
#include "HabitsWidgetView.h"
#include "PlaceholderWidgetView.h"
#include "PomodoroWidgetView.h"
#include "StatusItemHost.h"
#include "StoreNotice.h"
#include "TasksWidgetView.h"
#include "TrayPopup.h"
#include "WidgetPlacement.h"
#include "WidgetRegistry.h"

#include <QCoreApplication>
#include <QWidget>

WindowManager& WindowManager::shared()
{
    static auto* instance = new WindowManager(QCoreApplication::instance());
    return *instance;
}

WindowManager::WindowManager(QObject* parent)
    : QObject(parent)
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
        return new PomodoroWidgetView(viewOnly);
    if (widgetId == u"habits")
        return new HabitsWidgetView(viewOnly);
    if (widgetId == u"tasks")
        return new TasksWidgetView(viewOnly);
    if (const WidgetMeta* meta = WidgetRegistry::find(widgetId))
        return new PlaceholderWidgetView(meta->name);
    return new PlaceholderWidgetView(QStringLiteral("Unknown widget"));
}

QWidget* WindowManager::noticed(QWidget* view) const
{
    return new StoreNotice(DataStore::shared().mainContext(), view);
}

void WindowManager::restoreFromPersistence()
{
    ModelContext& context = DataStore::shared().mainContext();
    bool changed = false;
    for (WidgetPlacement* placement : context.fetch<WidgetPlacement>()) {
        const bool statusBar = placement->inStatusBar();
        const bool floating = placement->inFloating();
        placement->migrateFromLegacyModeIfNeeded();
        changed |= statusBar != placement->inStatusBar() || floating != placement->inFloating();
        sync(placement->widgetId(), placement->inStatusBar(), placement->inFloating());
    }
    // The hub's toggles may have migrated a placement in memory already, before this
    // ran: what counts is whether anything is still unsaved.
    if (changed || context.hasChanges())
        context.save();
}

void WindowManager::sync(const QString& widgetId, bool inStatusBar, bool inFloating)
{
    if (inStatusBar && !m_statusHosts.contains(widgetId)) {
        auto* host = new StatusItemHost(
            widgetId, [this, widgetId] { return noticed(widgetView(widgetId, false)); }, this);
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
        auto* host = new DesktopPanelHost(widgetId, WidgetRegistry::defaultPanelSize(widgetId),
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
    ModelContext& context = DataStore::shared().mainContext();
    auto* placement = context.find<WidgetPlacement>(widgetId);
    if (!placement)
        return;
    placement->setInFloating(false);
    placement->setDesktopFrameJSON(QString());
    context.save();
    emit placementsChanged();
}
