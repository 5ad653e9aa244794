#include "StatusNotifierItemAdaptor.h"

#include "StatusNotifierItemDBus.h"

StatusNotifierItemAdaptor::StatusNotifierItemAdaptor(StatusNotifierItemDBus* item)
    : QDBusAbstractAdaptor(item)
    , m_item(item)
{
    connect(item, &StatusNotifierItemDBus::iconChanged, this, &StatusNotifierItemAdaptor::NewIcon);
    connect(item, &StatusNotifierItemDBus::toolTipChanged, this,
            &StatusNotifierItemAdaptor::NewToolTip);
}

QString StatusNotifierItemAdaptor::id() const
{
    return m_item->id();
}

QString StatusNotifierItemAdaptor::title() const
{
    return m_item->title();
}

QString StatusNotifierItemAdaptor::iconName() const
{
    return m_item->iconName();
}

QList<SniPixmap> StatusNotifierItemAdaptor::iconPixmap() const
{
    return m_item->iconPixmaps();
}

SniToolTip StatusNotifierItemAdaptor::toolTip() const
{
    return m_item->toolTip();
}

void StatusNotifierItemAdaptor::ContextMenu(int x, int y)
{
    m_item->contextMenu(x, y);
}

void StatusNotifierItemAdaptor::Activate(int x, int y)
{
    m_item->activate(x, y);
}

void StatusNotifierItemAdaptor::SecondaryActivate(int x, int y)
{
    // A middle click: the same as a left one, which is what people expect of it.
    m_item->activate(x, y);
}

void StatusNotifierItemAdaptor::Scroll(int delta, const QString& orientation)
{
    m_item->scroll(delta, orientation);
}
