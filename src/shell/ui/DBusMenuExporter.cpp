#include "DBusMenuExporter.h"

#include <QAction>
#include <QMenu>

DBusMenuExporter::DBusMenuExporter(QMenu* menu, QObject* parent)
    : QObject(parent)
    , m_menu(menu)
{
    registerTrayDBusTypes();
    // Any change to the actions (a label, enabled, added or removed) is a new layout.
    const auto changed = [this] {
        ++m_revision;
        emit layoutUpdated(m_revision, 0);
    };
    for (QAction* action : menu->actions())
        connect(action, &QAction::changed, this, changed);
}

QAction* DBusMenuExporter::actionFor(int id) const
{
    if (!m_menu || id < 1)
        return nullptr;
    return m_menu->actions().value(id - 1);
}

QVariantMap DBusMenuExporter::propertiesOf(QAction* action, const QStringList& names) const
{
    QVariantMap all;
    if (action->isSeparator()) {
        all.insert(QStringLiteral("type"), QStringLiteral("separator"));
    } else {
        // Mnemonics are "_" in dbusmenu, "&" in Qt.
        QString label = action->text();
        label.replace(u'_', QStringLiteral("__"));
        label.replace(u'&', u'_');
        all.insert(QStringLiteral("label"), label);
        all.insert(QStringLiteral("enabled"), action->isEnabled());
    }
    all.insert(QStringLiteral("visible"), action->isVisible());
    if (names.isEmpty())
        return all;
    QVariantMap asked;
    for (const QString& name : names) {
        if (all.contains(name))
            asked.insert(name, all.value(name));
    }
    return asked;
}

DBusMenuLayoutItem DBusMenuExporter::layout(int parentId, int depth, const QStringList& names) const
{
    DBusMenuLayoutItem root;
    root.id = parentId;
    if (parentId != 0) {
        if (QAction* action = actionFor(parentId))
            root.properties = propertiesOf(action, names);
        return root; // the items have no submenus
    }
    root.properties.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
    if (depth == 0 || !m_menu)
        return root;
    const QList<QAction*> actions = m_menu->actions();
    for (qsizetype i = 0; i < actions.size(); ++i) {
        DBusMenuLayoutItem child{int(i) + 1, propertiesOf(actions.at(i), names), {}};
        root.children.append(QDBusVariant(QVariant::fromValue(child)));
    }
    return root;
}

QList<DBusMenuItem> DBusMenuExporter::groupProperties(const QList<int>& ids,
                                                      const QStringList& names) const
{
    QList<DBusMenuItem> out;
    for (const int id : ids) {
        if (QAction* action = actionFor(id))
            out.append({id, propertiesOf(action, names)});
    }
    return out;
}

QVariant DBusMenuExporter::property(int id, const QString& name) const
{
    QAction* action = actionFor(id);
    return action ? propertiesOf(action, {name}).value(name) : QVariant();
}

void DBusMenuExporter::event(int id, const QString& eventId)
{
    if (eventId != u"clicked")
        return;
    QAction* action = actionFor(id);
    if (action && action->isEnabled() && !action->isSeparator())
        // Queued: the host's call returns before whatever the action opens.
        QMetaObject::invokeMethod(action, &QAction::trigger, Qt::QueuedConnection);
}
