#include "TrayDBusTypes.h"

#include <QDBusMetaType>
#include <QIcon>
#include <QImage>
#include <QtEndian>

QList<SniPixmap> SniPixmap::of(const QIcon& icon)
{
    QList<SniPixmap> out;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        const QImage image =
            icon.pixmap(QSize(size, size)).toImage().convertToFormat(QImage::Format_ARGB32);
        if (image.isNull())
            continue;
        SniPixmap p{image.width(), image.height(), {}};
        p.bytes.resize(qsizetype(image.width()) * image.height() * 4);
        auto* dest = reinterpret_cast<quint32*>(p.bytes.data());
        for (int y = 0; y < image.height(); ++y) {
            const auto* line = reinterpret_cast<const quint32*>(image.constScanLine(y));
            for (int x = 0; x < image.width(); ++x)
                *dest++ = qToBigEndian(line[x]);
        }
        out.append(p);
    }
    return out;
}

QDBusArgument& operator<<(QDBusArgument& out, const SniPixmap& pixmap)
{
    out.beginStructure();
    out << pixmap.width << pixmap.height << pixmap.bytes;
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, SniPixmap& pixmap)
{
    in.beginStructure();
    in >> pixmap.width >> pixmap.height >> pixmap.bytes;
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const SniToolTip& tip)
{
    out.beginStructure();
    out << tip.iconName << tip.pixmaps << tip.title << tip.text;
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, SniToolTip& tip)
{
    in.beginStructure();
    in >> tip.iconName >> tip.pixmaps >> tip.title >> tip.text;
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const DBusMenuLayoutItem& item)
{
    out.beginStructure();
    out << item.id << item.properties;
    out.beginArray(qMetaTypeId<QDBusVariant>());
    for (const QDBusVariant& child : item.children)
        out << child;
    out.endArray();
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, DBusMenuLayoutItem& item)
{
    in.beginStructure();
    in >> item.id >> item.properties;
    in.beginArray();
    item.children.clear();
    while (!in.atEnd()) {
        QDBusVariant child;
        in >> child;
        item.children.append(child);
    }
    in.endArray();
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const DBusMenuItem& item)
{
    out.beginStructure();
    out << item.id << item.properties;
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, DBusMenuItem& item)
{
    in.beginStructure();
    in >> item.id >> item.properties;
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const DBusMenuItemKeys& item)
{
    out.beginStructure();
    out << item.id << item.properties;
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, DBusMenuItemKeys& item)
{
    in.beginStructure();
    in >> item.id >> item.properties;
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const DBusMenuEvent& event)
{
    out.beginStructure();
    out << event.id << event.eventId << event.data << event.timestamp;
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, DBusMenuEvent& event)
{
    in.beginStructure();
    in >> event.id >> event.eventId >> event.data >> event.timestamp;
    in.endStructure();
    return in;
}

void registerTrayDBusTypes()
{
    static const bool once = [] {
        qDBusRegisterMetaType<SniPixmap>();
        qDBusRegisterMetaType<QList<SniPixmap>>();
        qDBusRegisterMetaType<SniToolTip>();
        qDBusRegisterMetaType<DBusMenuLayoutItem>();
        qDBusRegisterMetaType<DBusMenuItem>();
        qDBusRegisterMetaType<QList<DBusMenuItem>>();
        qDBusRegisterMetaType<DBusMenuItemKeys>();
        qDBusRegisterMetaType<QList<DBusMenuItemKeys>>();
        qDBusRegisterMetaType<DBusMenuEvent>();
        qDBusRegisterMetaType<QList<DBusMenuEvent>>();
        return true;
    }();
    (void)once;
}
