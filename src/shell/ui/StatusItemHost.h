#pragma once

#include "PomodoroService.h"

#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <functional>

class QMenu;
class QWidget;
class TrayItem;
class TrayPopup;

// One widget in the system tray: an icon whose click toggles a popup holding the
// widget's view, and whose menu opens the popup, the hub window or quits. The
// pomodoro item also shows the live countdown in its tooltip and icon.
class StatusItemHost final : public QObject
{
    Q_OBJECT

public:
    using ContentFactory = std::function<QWidget*()>;

    // The content is created the first time the popup opens.
    StatusItemHost(const QString& widgetId, ContentFactory content, const PomodoroService& timer,
                   QObject* parent = nullptr);
    ~StatusItemHost() override;

    QString widgetId() const { return m_widgetId; }
    // The icon's current title: the widget's emoji, or for a running timer
    // "🍅 24:59" (also the tooltip).
    QString title() const { return m_title; }
    TrayPopup* popup() const;
    bool isPopupShown() const;

    // `at`: where the tray was clicked, when it says; else near the icon or the
    // tray's corner of the screen.
    void togglePopover(const QPoint& at = {});
    void showPopover(const QPoint& at = {});
    void tearDown();

    // The title of the pomodoro item for a given engine state.
    static QString pomodoroTitle(PomodoroService::Phase phase, bool isActive, qint64 remainingMs);

signals:
    void openHubRequested();
    void historyRequested();
    void quitRequested();

private:
    void setTitle(const QString& title);
    void refreshPomodoroTitle();
    void ensurePopup();

    QString m_widgetId;
    const PomodoroService& m_timer;
    QString m_title;
    ContentFactory m_content;
    TrayItem* m_tray = nullptr;
    QMenu* m_menu = nullptr;
    QPointer<TrayPopup> m_popup;
};
