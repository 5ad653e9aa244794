#include "StatusNotifierItemDBus.h"

#include "DBusMenuAdaptor.h"
#include "DBusMenuExporter.h"
#include "StatusNotifierItemAdaptor.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QIcon>

namespace {
const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");
const QString itemPath = QStringLiteral("/StatusNotifierItem");
constexpr int callTimeoutMs = 5000;

QDBusMessage busCall(const QString& method)
{
    return QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                          QStringLiteral("/org/freedesktop/DBus"),
                                          QStringLiteral("org.freedesktop.DBus"), method);
}

// Runs `done` with the reply's first argument once the call answers (null on error).
template <typename Done>
void whenAnswered(const QDBusConnection& connection, const QDBusMessage& call, QObject* context,
                  Done done)
{
    auto* pending = new QDBusPendingCallWatcher(connection.asyncCall(call, callTimeoutMs), context);
    QObject::connect(pending, &QDBusPendingCallWatcher::finished, context,
                     [pending, done](QDBusPendingCallWatcher*) {
                         pending->deleteLater();
                         const QDBusMessage reply = pending->reply();
                         done(reply.type() == QDBusMessage::ReplyMessage
                                  ? reply.arguments().value(0)
                                  : QVariant());
                     });
}
} // namespace

StatusNotifierItem* StatusNotifierItem::create(const QString& id, const QString& title, QMenu* menu,
                                               QObject* parent)
{
    return new StatusNotifierItemDBus(id, title, menu, parent);
}

StatusNotifierItemDBus::StatusNotifierItemDBus(const QString& id, const QString& title, QMenu* menu,
                                               QObject* parent)
    : StatusNotifierItem(parent)
    , m_id(id)
    , m_title(title)
    , m_service(QStringLiteral("org.kde.StatusNotifierItem-%1-%2")
                    .arg(QCoreApplication::applicationPid())
                    .arg(id))
    , m_connection(QDBusConnection::connectToBus(QDBusConnection::SessionBus, m_service))
{
    registerTrayDBusTypes();
    new StatusNotifierItemAdaptor(this);
    m_menu = new DBusMenuExporter(menu, this);
    new DBusMenuAdaptor(m_menu);
    if (!m_connection.isConnected()) {
        // No session bus: nothing will ever host the item.
        QMetaObject::invokeMethod(
            this, [this] { setHosted(false); }, Qt::QueuedConnection);
        return;
    }
    m_connection.registerObject(itemPath, this, QDBusConnection::ExportAdaptors);
    m_connection.registerObject(QStringLiteral("/MenuBar"), m_menu,
                                QDBusConnection::ExportAdaptors);
    QDBusMessage request = busCall(QStringLiteral("RequestName"));
    request << m_service << uint(4); // DBUS_NAME_FLAG_DO_NOT_QUEUE
    whenAnswered(m_connection, request, this, [this](const QVariant&) { checkForWatcher(); });

    // A tray that starts (or restarts) later must be told about the item again.
    m_watcher = new QDBusServiceWatcher(watcherService, m_connection,
                                        QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& owner) {
                if (owner.isEmpty())
                    setHosted(false);
                else
                    registerWithWatcher();
            });
}

StatusNotifierItemDBus::~StatusNotifierItemDBus()
{
    if (m_connection.isConnected()) {
        m_connection.unregisterObject(itemPath);
        m_connection.unregisterObject(QStringLiteral("/MenuBar"));
    }
    QDBusConnection::disconnectFromBus(m_service);
}

void StatusNotifierItemDBus::checkForWatcher()
{
    QDBusMessage hasOwner = busCall(QStringLiteral("NameHasOwner"));
    hasOwner << watcherService;
    whenAnswered(m_connection, hasOwner, this, [this](const QVariant& owned) {
        if (owned.toBool())
            registerWithWatcher();
        else
            setHosted(false);
    });
}

void StatusNotifierItemDBus::registerWithWatcher()
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        watcherService, watcherPath, watcherService, QStringLiteral("RegisterStatusNotifierItem"));
    // By object path, so the watcher takes this connection as the item's: GNOME's
    // AppIndicator extension, given a well-known name, races its own name watcher
    // against reading the item and now and then drops the item.
    call << itemPath;
    auto* pending = new QDBusPendingCallWatcher(m_connection.asyncCall(call, callTimeoutMs), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this, pending] {
        pending->deleteLater();
        setHosted(!pending->isError());
    });
}

void StatusNotifierItemDBus::setHosted(bool hosted)
{
    if (m_decided && hosted == m_hosted)
        return;
    m_decided = true;
    m_hosted = hosted;
    emit hostedChanged(hosted);
}

void StatusNotifierItemDBus::setIcon(const QIcon& icon, const QString& themeName)
{
    m_iconName = themeName;
    m_icon = icon;
    m_pixmaps.reset();
    emit iconChanged();
}

QList<SniPixmap> StatusNotifierItemDBus::iconPixmaps() const
{
    if (!m_pixmaps)
        m_pixmaps = SniPixmap::of(m_icon);
    return *m_pixmaps;
}

void StatusNotifierItemDBus::setToolTip(const QString& text)
{
    if (text == m_toolTip)
        return;
    m_toolTip = text;
    // The countdown changes every second: no signal while no tray listens (a tray
    // that comes reads the tooltip anew).
    if (m_hosted)
        emit toolTipChanged();
}

SniToolTip StatusNotifierItemDBus::toolTip() const
{
    // The item's name as the title, what it shows now (the countdown) as the text.
    return {m_iconName, {}, m_title, m_toolTip};
}

QPoint StatusNotifierItemDBus::screenPoint(int x, int y)
{
    // (0, 0) says nothing; so does a point within the first icon's size of the
    // corner: some hosts (waybar) pass where in the icon the click was.
    constexpr int iconLocal = 32;
    return x < iconLocal && y < iconLocal && x >= 0 && y >= 0 ? QPoint() : QPoint(x, y);
}

void StatusNotifierItemDBus::activate(int x, int y)
{
    emit activated(screenPoint(x, y));
}

void StatusNotifierItemDBus::contextMenu(int x, int y)
{
    emit contextMenuRequested(screenPoint(x, y));
}

void StatusNotifierItemDBus::scroll(int delta, const QString& orientation)
{
    emit scrolled(delta, orientation.compare(u"horizontal", Qt::CaseInsensitive) == 0
                             ? Qt::Horizontal
                             : Qt::Vertical);
}
