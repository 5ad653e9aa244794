#include "DBusMenuAdaptor.h"

#include "DBusMenuExporter.h"

DBusMenuAdaptor::DBusMenuAdaptor(DBusMenuExporter* menu)
    : QDBusAbstractAdaptor(menu)
    , m_menu(menu)
{
    connect(menu, &DBusMenuExporter::layoutUpdated, this, &DBusMenuAdaptor::LayoutUpdated);
}

uint DBusMenuAdaptor::GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                                DBusMenuLayoutItem& layout)
{
    layout = m_menu->layout(parentId, recursionDepth, propertyNames);
    return m_menu->revision();
}

QList<DBusMenuItem> DBusMenuAdaptor::GetGroupProperties(const QList<int>& ids,
                                                        const QStringList& propertyNames)
{
    return m_menu->groupProperties(ids, propertyNames);
}

QDBusVariant DBusMenuAdaptor::GetProperty(int id, const QString& name)
{
    return QDBusVariant(m_menu->property(id, name));
}

void DBusMenuAdaptor::Event(int id, const QString& eventId, const QDBusVariant&, uint)
{
    m_menu->event(id, eventId);
}

QList<int> DBusMenuAdaptor::EventGroup(const QList<DBusMenuEvent>& events)
{
    for (const DBusMenuEvent& e : events)
        m_menu->event(e.id, e.eventId);
    return {};
}

bool DBusMenuAdaptor::AboutToShow(int)
{
    return false; // the layout does not change when shown
}

QList<int> DBusMenuAdaptor::AboutToShowGroup(const QList<int>&, QList<int>& idErrors)
{
    idErrors.clear();
    return {};
}
