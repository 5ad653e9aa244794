#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QString>

#include "WidgetWindow.h"

#include <functional>

class AppServices;
class DesktopPanelHost;
class StatusItemHost;
class TooltipPanelService;

class QWidget;

// Turns widget placements into live tray items and floating panels, and back.
class WindowManager final : public QObject
{
    Q_OBJECT

public:
    using ViewFactory = std::function<QWidget*(const QString& widgetId, bool viewOnly)>;

    explicit WindowManager(AppServices& services, QObject* parent = nullptr);
    ~WindowManager() override;

    // Creates hosts for every stored placement (after migrating legacy modes).
    void restoreFromPersistence();
    // Makes the live hosts of one widget match the two flags; never writes placements.
    void sync(const QString& widgetId, bool inStatusBar, bool inFloating);
    // The user closed a panel: float off, frame forgotten, saved.
    void handlePanelClosed(const QString& widgetId);

    // Opens the widget's full view as an ordinary window, or raises the open one.
    WidgetWindow* openWindow(const QString& widgetId);
    WidgetWindow* window(const QString& widgetId) const { return m_windows.value(widgetId); }

    // The view for a widget identifier (a placeholder for an unknown one).
    QWidget* widgetView(const QString& widgetId, bool viewOnly) const;
    // Tests replace the views.
    void setViewFactory(ViewFactory factory) { m_viewFactory = std::move(factory); }

    StatusItemHost* statusHost(const QString& widgetId) const
    {
        return m_statusHosts.value(widgetId);
    }
    DesktopPanelHost* panelHost(const QString& widgetId) const
    {
        return m_panelHosts.value(widgetId);
    }
    qsizetype hostCount() const { return m_statusHosts.size() + m_panelHosts.size(); }
    qsizetype panelCount() const { return m_panelHosts.size(); }

signals:
    void openHubRequested();
    void historyRequested();
    void quitRequested();

private:
    // `view` under the line that shows while the store is damaged.
    QWidget* noticed(QWidget* view) const;

    AppServices& m_services;
    // The one hover tooltip every task row shares.
    TooltipPanelService* m_tooltips;
    QHash<QString, StatusItemHost*> m_statusHosts;
    QHash<QString, DesktopPanelHost*> m_panelHosts;
    QHash<QString, QPointer<WidgetWindow>> m_windows;
    ViewFactory m_viewFactory;
};
