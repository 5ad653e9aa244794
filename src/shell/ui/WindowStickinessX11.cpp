#include "WindowStickiness.h"

#include <QGuiApplication>
#include <QWidget>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>

namespace {
xcb_atom_t atom(xcb_connection_t* c, const char* name)
{
    const xcb_intern_atom_cookie_t cookie = xcb_intern_atom(c, 0, uint16_t(strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(c, cookie, nullptr);
    const xcb_atom_t a = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    free(reply);
    return a;
}
} // namespace

void WindowStickiness::apply(QWidget* window)
{
    // Only the xcb platform talks to a window manager; offscreen and Wayland skip this.
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        return;
    auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t* c = x11 ? x11->connection() : nullptr;
    if (!c || !window->winId())
        return;
    const xcb_window_t id = xcb_window_t(window->winId());
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    const xcb_atom_t wmState = atom(c, "_NET_WM_STATE");
    const xcb_atom_t states[] = {atom(c, "_NET_WM_STATE_STICKY"),
                                 atom(c, "_NET_WM_STATE_SKIP_TASKBAR"),
                                 atom(c, "_NET_WM_STATE_SKIP_PAGER")};
    // A mapped window asks the window manager (EWMH client message); the
    // property covers window managers that read it at map time.
    for (xcb_atom_t state : states) {
        xcb_client_message_event_t ev = {};
        ev.response_type = XCB_CLIENT_MESSAGE;
        ev.format = 32;
        ev.window = id;
        ev.type = wmState;
        ev.data.data32[0] = 1; // _NET_WM_STATE_ADD
        ev.data.data32[1] = state;
        ev.data.data32[3] = 1; // from a normal application
        xcb_send_event(c, 0, root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&ev));
    }
    const uint32_t allDesktops = 0xFFFFFFFF;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_DESKTOP"), XCB_ATOM_CARDINAL,
                        32, 1, &allDesktops);
    xcb_flush(c);
}

bool WindowStickiness::canBlend()
{
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        return true;
    auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t* c = x11 ? x11->connection() : nullptr;
    if (!c)
        return true;
    // A compositing manager owns _NET_WM_CM_S<screen> (EWMH).
    const QByteArray name = QByteArrayLiteral("_NET_WM_CM_S0"); // the default screen
    const xcb_atom_t selection = atom(c, name.constData());
    xcb_get_selection_owner_reply_t* reply =
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr);
    const bool owned = reply && reply->owner != XCB_NONE;
    free(reply);
    return owned;
}
