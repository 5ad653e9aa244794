#pragma once

#include <xcb/xcb.h>

// X11 atoms by name, for the window hints and the startup notification.
class XcbAtom
{
public:
    // The atom called `name` on `c`, made when it does not exist yet; XCB_ATOM_NONE
    // when the server does not answer.
    static xcb_atom_t intern(xcb_connection_t* c, const char* name);
};
