#include "WindowStickiness.h"

#include <QGuiApplication>
#include <QWidget>

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

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
    const xcb_atom_t wanted[] = {atom(c, "_NET_WM_STATE_STICKY"),
                                 atom(c, "_NET_WM_STATE_SKIP_TASKBAR"),
                                 atom(c, "_NET_WM_STATE_SKIP_PAGER")};

    // Before the window is mapped the window manager reads the property (EWMH); it
    // ignores messages about a window it does not manage yet. Qt keeps atoms it
    // did not set when it writes the property at map time.
    std::vector<xcb_atom_t> states;
    xcb_get_property_reply_t* current = xcb_get_property_reply(
        c, xcb_get_property(c, 0, id, wmState, XCB_ATOM_ATOM, 0, 1024), nullptr);
    if (current && current->format == 32 && current->type == XCB_ATOM_ATOM) {
        const auto* data = static_cast<const xcb_atom_t*>(xcb_get_property_value(current));
        states.assign(data, data + xcb_get_property_value_length(current) / 4);
    }
    free(current);
    for (xcb_atom_t state : wanted) {
        if (std::find(states.begin(), states.end(), state) == states.end())
            states.push_back(state);
    }
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, wmState, XCB_ATOM_ATOM, 32,
                        uint32_t(states.size()), states.data());
    const uint32_t allDesktops = 0xFFFFFFFF;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_DESKTOP"), XCB_ATOM_CARDINAL,
                        32, 1, &allDesktops);

    // A window already on screen asks the window manager instead.
    if (window->isVisible()) {
        for (xcb_atom_t state : wanted) {
            xcb_client_message_event_t ev = {};
            ev.response_type = XCB_CLIENT_MESSAGE;
            ev.format = 32;
            ev.window = id;
            ev.type = wmState;
            ev.data.data32[0] = 1; // _NET_WM_STATE_ADD
            ev.data.data32[1] = state;
            ev.data.data32[3] = 1; // from a normal application
            xcb_send_event(c, 0, root,
                           XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT |
                               XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                           reinterpret_cast<const char*>(&ev));
        }
    }
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
