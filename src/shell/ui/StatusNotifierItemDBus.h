#pragma once

#include "StatusNotifierItem.h"
#include "TrayDBusTypes.h"

#include <QDBusConnection>
#include <QIcon>

#include <optional>

class DBusMenuExporter;
class QDBusServiceWatcher;

// The item over D-Bus: org.kde.StatusNotifierItem at /StatusNotifierItem and its
// menu as com.canonical.dbusmenu at /MenuBar, on a bus connection of its own
// (object paths are per connection, and each item has the same ones) that owns
// org.kde.StatusNotifierItem-<pid>-<n>. Registered with the watcher whenever one
// runs, so that a tray started later (or restarted) finds it.
class StatusNotifierItemDBus final : public StatusNotifierItem
{
    Q_OBJECT

public:
    StatusNotifierItemDBus(const QString& id, const QString& title, QMenu* menu, QObject* parent);
    ~StatusNotifierItemDBus() override;

    void setIcon(const QIcon& icon, const QString& themeName) override;
    void setToolTip(const QString& text) override;
    bool isHosted() const override { return m_hosted; }

    // What the adaptor publishes.
    QString id() const { return m_id; }
    QString title() const { return m_title; }
    QString iconName() const { return m_iconName; }
    QList<SniPixmap> iconPixmaps() const;
    SniToolTip toolTip() const;
    void activate(int x, int y);
    void contextMenu(int x, int y);
    void scroll(int delta, const QString& orientation);
    // The screen point a host's coordinates give; null when they give none.
    static QPoint screenPoint(int x, int y);

signals:
    void iconChanged();
    void toolTipChanged();

private:
    void checkForWatcher();
    void registerWithWatcher();
    void setHosted(bool hosted);

    QString m_id;
    QString m_title;
    QString m_service;
    QDBusConnection m_connection;
    DBusMenuExporter* m_menu = nullptr;
    QDBusServiceWatcher* m_watcher = nullptr;
    QString m_iconName;
    QIcon m_icon;
    // Converted when a host first asks: with no host, or one that takes the
    // themed name, the countdown's icon changes every second for nobody.
    mutable std::optional<QList<SniPixmap>> m_pixmaps;
    QString m_toolTip;
    bool m_hosted = false;
    bool m_decided = false;
};
