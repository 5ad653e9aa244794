#pragma once

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusVariant>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariantMap>

class QIcon;

// What a tray item and its menu send over D-Bus, in the shapes the
// StatusNotifierItem and dbusmenu interfaces give them.

// One image of an icon: width, height, and ARGB32 pixels in network byte order.
struct SniPixmap
{
    int width = 0;
    int height = 0;
    QByteArray bytes;

    // The icon at the sizes hosts ask for most.
    static QList<SniPixmap> of(const QIcon& icon);
};

// (icon name, icon pixmaps, title, text)
struct SniToolTip
{
    QString iconName;
    QList<SniPixmap> pixmaps;
    QString title;
    QString text;
};

// A menu item with its children, each child wrapped in a variant.
struct DBusMenuLayoutItem
{
    int id = 0;
    QVariantMap properties;
    QList<QDBusVariant> children;
};

struct DBusMenuItem
{
    int id = 0;
    QVariantMap properties;
};

struct DBusMenuItemKeys
{
    int id = 0;
    QStringList properties;
};

// One event of EventGroup: (id, event id, data, timestamp).
struct DBusMenuEvent
{
    int id = 0;
    QString eventId;
    QDBusVariant data;
    uint timestamp = 0;
};

Q_DECLARE_METATYPE(SniPixmap)
Q_DECLARE_METATYPE(SniToolTip)
Q_DECLARE_METATYPE(DBusMenuLayoutItem)
Q_DECLARE_METATYPE(DBusMenuItem)
Q_DECLARE_METATYPE(DBusMenuItemKeys)
Q_DECLARE_METATYPE(DBusMenuEvent)

QDBusArgument& operator<<(QDBusArgument& out, const SniPixmap& pixmap);
const QDBusArgument& operator>>(const QDBusArgument& in, SniPixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& out, const SniToolTip& tip);
const QDBusArgument& operator>>(const QDBusArgument& in, SniToolTip& tip);
QDBusArgument& operator<<(QDBusArgument& out, const DBusMenuLayoutItem& item);
const QDBusArgument& operator>>(const QDBusArgument& in, DBusMenuLayoutItem& item);
QDBusArgument& operator<<(QDBusArgument& out, const DBusMenuItem& item);
const QDBusArgument& operator>>(const QDBusArgument& in, DBusMenuItem& item);
QDBusArgument& operator<<(QDBusArgument& out, const DBusMenuItemKeys& item);
const QDBusArgument& operator>>(const QDBusArgument& in, DBusMenuItemKeys& item);
QDBusArgument& operator<<(QDBusArgument& out, const DBusMenuEvent& event);
const QDBusArgument& operator>>(const QDBusArgument& in, DBusMenuEvent& event);

// Registers the types with Qt D-Bus; once is enough, more is harmless.
void registerTrayDBusTypes();
