#include "WindowActivation.h"

#include "XcbAtom.h"

#include <QGuiApplication>
#include <QWidget>

#include <xcb/xcb.h>

#include <cstring>

namespace {
// The startup-notification message that ends the launch `id` (its feedback goes,
// and the window that carries the id may take the focus).
void sendRemove(xcb_connection_t* c, xcb_window_t root, xcb_window_t from, const QByteArray& id)
{
    QByteArray escaped = id;
    escaped.replace('\\', "\\\\").replace('"', "\\\"").replace(' ', "\\ ");
    const QByteArray message = "remove: ID=" + escaped + '\0';
    const xcb_atom_t begin = XcbAtom::intern(c, "_NET_STARTUP_INFO_BEGIN");
    const xcb_atom_t more = XcbAtom::intern(c, "_NET_STARTUP_INFO");
    for (qsizetype at = 0; at < message.size(); at += 20) {
        xcb_client_message_event_t ev = {};
        ev.response_type = XCB_CLIENT_MESSAGE;
        ev.format = 8;
        ev.window = from;
        ev.type = at == 0 ? begin : more;
        std::memcpy(ev.data.data8, message.constData() + at,
                    size_t(std::min<qsizetype>(20, message.size() - at)));
        xcb_send_event(c, 0, root, XCB_EVENT_MASK_PROPERTY_CHANGE,
                       reinterpret_cast<const char*>(&ev));
    }
}
} // namespace

void WindowActivation::prepare(QWidget* window, const QString& token)
{
    if (token.isEmpty())
        return;
    const QString platform = QGuiApplication::platformName();
    if (platform.startsWith(u"wayland")) {
        // Qt's Wayland client hands this to xdg-activation on the next activation.
        qputenv("XDG_ACTIVATION_TOKEN", token.toUtf8());
        return;
    }
    if (platform != u"xcb")
        return;
    auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t* c = x11 ? x11->connection() : nullptr;
    if (!c || !window->winId())
        return;
    const xcb_window_t id = xcb_window_t(window->winId());
    const QByteArray startup = token.toUtf8();
    // Window managers weigh the launch's time stamp (in the id) against focus stealing.
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, XcbAtom::intern(c, "_NET_STARTUP_ID"),
                        XcbAtom::intern(c, "UTF8_STRING"), 8, uint32_t(startup.size()),
                        startup.constData());
    sendRemove(c, xcb_setup_roots_iterator(xcb_get_setup(c)).data->root, id, startup);
    xcb_flush(c);
}
