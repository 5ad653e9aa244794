#pragma once

#include "TrayDBusTypes.h"

#include <QObject>
#include <QPointer>

class QAction;
class QMenu;

// A QMenu as the com.canonical.dbusmenu object desktop trays read a tray item's
// menu from (KDE Plasma, GNOME's AppIndicator extension, waybar). The menu's
// actions are its items, numbered from 1 in order; a host's click triggers the
// action. A change to the actions is announced as a new layout revision.
class DBusMenuExporter final : public QObject
{
    Q_OBJECT

public:
    explicit DBusMenuExporter(QMenu* menu, QObject* parent = nullptr);

    uint revision() const { return m_revision; }
    DBusMenuLayoutItem layout(int parentId, int depth, const QStringList& names) const;
    QList<DBusMenuItem> groupProperties(const QList<int>& ids, const QStringList& names) const;
    QVariant property(int id, const QString& name) const;
    // A host's "clicked" on item `id`.
    void event(int id, const QString& eventId);

signals:
    void layoutUpdated(uint revision, int parent);

private:
    QAction* actionFor(int id) const;
    QVariantMap propertiesOf(QAction* action, const QStringList& names) const;

    QPointer<QMenu> m_menu;
    uint m_revision = 1;
};
