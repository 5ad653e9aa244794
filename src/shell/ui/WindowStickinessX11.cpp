#include "WindowStickiness.h"

#include "SwayCommand.h"

#include "XcbAtom.h"

#include <QGuiApplication>
#include <QPointer>
#include <QWidget>

#include <xcb/xcb.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

namespace {
struct X11Window
{
    xcb_connection_t* connection = nullptr;
    xcb_window_t id = 0;
    xcb_window_t root = 0;
};

// The window's X11 side, when it has one (the xcb platform: not offscreen, not
// Qt's own Wayland backend).
std::optional<X11Window> x11Window(QWidget* window)
{
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        return std::nullopt;
    auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t* c = x11 ? x11->connection() : nullptr;
    if (!c || !window->winId())
        return std::nullopt;
    return X11Window{c, xcb_window_t(window->winId()),
                     xcb_setup_roots_iterator(xcb_get_setup(c)).data->root};
}

std::vector<xcb_atom_t> wantedStates(xcb_connection_t* c)
{
    return {XcbAtom::intern(c, "_NET_WM_STATE_STICKY"),
            XcbAtom::intern(c, "_NET_WM_STATE_SKIP_TASKBAR"),
            XcbAtom::intern(c, "_NET_WM_STATE_SKIP_PAGER"),
            XcbAtom::intern(c, "_NET_WM_STATE_ABOVE")};
}

void sendClientMessage(const X11Window& w, xcb_atom_t type, std::array<uint32_t, 5> data)
{
    xcb_client_message_event_t ev = {};
    ev.response_type = XCB_CLIENT_MESSAGE;
    ev.format = 32;
    ev.window = w.id;
    ev.type = type;
    std::copy(data.begin(), data.end(), ev.data.data32);
    xcb_send_event(w.connection, 0, w.root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&ev));
}
} // namespace

void WindowStickiness::apply(QWidget* window)
{
    const auto w = x11Window(window);
    if (!w)
        return;
    xcb_connection_t* c = w->connection;
    const xcb_atom_t wmState = XcbAtom::intern(c, "_NET_WM_STATE");

    // Before the window is mapped the window manager reads the property (EWMH); it
    // ignores messages about a window it does not manage yet. Qt keeps atoms it
    // did not set when it writes the property at map time.
    std::vector<xcb_atom_t> states;
    xcb_get_property_reply_t* current = xcb_get_property_reply(
        c, xcb_get_property(c, 0, w->id, wmState, XCB_ATOM_ATOM, 0, 1024), nullptr);
    if (current && current->format == 32 && current->type == XCB_ATOM_ATOM) {
        const auto* data = static_cast<const xcb_atom_t*>(xcb_get_property_value(current));
        states.assign(data, data + xcb_get_property_value_length(current) / 4);
    }
    free(current);
    for (xcb_atom_t state : wantedStates(c)) {
        if (std::find(states.begin(), states.end(), state) == states.end())
            states.push_back(state);
    }
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, w->id, wmState, XCB_ATOM_ATOM, 32,
                        uint32_t(states.size()), states.data());
    const uint32_t allDesktops = 0xFFFFFFFF;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, w->id, XcbAtom::intern(c, "_NET_WM_DESKTOP"),
                        XCB_ATOM_CARDINAL, 32, 1, &allDesktops);
    // Normal first, utility second: window managers take the first type they know.
    // KWin hides utility windows while their application is inactive, so it must
    // see a normal one; sway floats a window only if any of its types is utility
    // (or the like), and tiles the rest.
    const xcb_atom_t types[] = {XcbAtom::intern(c, "_NET_WM_WINDOW_TYPE_NORMAL"),
                                XcbAtom::intern(c, "_NET_WM_WINDOW_TYPE_UTILITY")};
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, w->id, XcbAtom::intern(c, "_NET_WM_WINDOW_TYPE"),
                        XCB_ATOM_ATOM, 32, 2, types);
    xcb_flush(c);
}

void WindowStickiness::request(QWidget* window, const QPoint& at)
{
    const auto w = x11Window(window);
    if (!w)
        return;
    xcb_connection_t* c = w->connection;
    // A managed window asks the window manager (EWMH): all desktops, and each state.
    sendClientMessage(*w, XcbAtom::intern(c, "_NET_WM_DESKTOP"), {0xFFFFFFFF, 1, 0, 0, 0});
    const xcb_atom_t wmState = XcbAtom::intern(c, "_NET_WM_STATE");
    for (xcb_atom_t state : wantedStates(c))
        sendClientMessage(*w, wmState, {1 /* add */, state, 0, 1 /* an application */, 0});
    xcb_flush(c);
    // Sway ignores all of that for Xwayland windows, and centres every floating one.
    SwayCommand::send(SwayCommand::placeSticky(w->id, at.x(), at.y()));
}

void WindowStickiness::keepAt(QWidget* window, const QPoint& at)
{
    if (const auto w = x11Window(window))
        SwayCommand::send(SwayCommand::moveTo(w->id, at.x(), at.y()));
}

void WindowStickiness::keepFloating(QWidget* window, const QRect& frame)
{
    // Sway keeps Xwayland windows stacked by when they were last active, and hands a
    // click to the topmost one there: a hub tiled over the screen would take the
    // clicks meant for the floating panels in front of it.
    if (const auto w = x11Window(window))
        SwayCommand::send(SwayCommand::floatAt(w->id, frame));
}

void WindowStickiness::workArea(QObject* context, std::function<void(const QRect&)> answer)
{
    SwayCommand::workArea(
        [context = QPointer<QObject>(context), answer = std::move(answer)](const QRect& area) {
            if (context)
                answer(area);
        });
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
    const xcb_atom_t selection = XcbAtom::intern(c, name.constData());
    xcb_get_selection_owner_reply_t* reply =
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr);
    const bool owned = reply && reply->owner != XCB_NONE;
    free(reply);
    return owned;
}
