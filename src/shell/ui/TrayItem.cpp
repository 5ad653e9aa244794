#include "TrayItem.h"

#include "StatusNotifierItem.h"

#include <QCursor>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QTimer>

TrayItem::TrayItem(const QString& id, const QString& title, QMenu* menu, QObject* parent)
    : QObject(parent)
    , m_id(id)
    , m_title(title)
    , m_menu(menu)
{}

TrayItem::~TrayItem()
{
    hide();
}

void TrayItem::show()
{
    if (m_shown)
        return;
    m_shown = true;
    m_item = StatusNotifierItem::create(m_id, m_title, m_menu, this);
    if (!m_item) {
        useXEmbed(true);
        return;
    }
    m_item->setIcon(m_icon, m_themeName);
    m_item->setToolTip(m_toolTip);
    // Until a tray has taken the item (or none is there) nothing shows.
    connect(m_item, &StatusNotifierItem::hostedChanged, this,
            [this](bool hosted) { useXEmbed(!hosted); });
    connect(m_item, &StatusNotifierItem::activated, this, &TrayItem::activated);
    connect(m_item, &StatusNotifierItem::contextMenuRequested, this, [this](const QPoint& at) {
        // Hosts that do not read the exported menu ask for it this way.
        if (m_menu)
            m_menu->popup(at.isNull() ? QCursor::pos() : at);
    });
}

void TrayItem::hide()
{
    m_shown = false;
    // The item's bus name goes with it, and the trays drop it.
    delete m_item;
    m_item = nullptr;
    useXEmbed(false);
}

void TrayItem::useXEmbed(bool on)
{
    if (on == bool(m_xembed))
        return;
    if (!on) {
        delete m_xembed.data();
        return;
    }
    m_xembed = new QSystemTrayIcon(this);
    m_xembed->setContextMenu(m_menu);
    m_xembed->setIcon(m_icon);
    m_xembed->setToolTip(m_toolTip);
    connect(m_xembed, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    emit activated(QPoint());
            });
    m_xembed->show();
    // A tray that starts after us (autostart races at login) may never see an icon
    // shown before it existed: show it again once one is there.
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        auto* wait = new QTimer(m_xembed);
        connect(wait, &QTimer::timeout, m_xembed, [this, wait] {
            if (!QSystemTrayIcon::isSystemTrayAvailable())
                return;
            wait->deleteLater();
            m_xembed->hide();
            m_xembed->show();
        });
        wait->start(500);
    }
}

void TrayItem::setIcon(const QIcon& icon, const QString& themeName)
{
    m_icon = icon;
    m_themeName = themeName;
    if (m_item)
        m_item->setIcon(icon, themeName);
    if (m_xembed)
        m_xembed->setIcon(icon);
}

void TrayItem::setToolTip(const QString& text)
{
    m_toolTip = text;
    if (m_item)
        m_item->setToolTip(text);
    if (m_xembed)
        m_xembed->setToolTip(text);
}

QRect TrayItem::geometry() const
{
    return m_xembed ? m_xembed->geometry() : QRect();
}
