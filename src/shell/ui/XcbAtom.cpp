#include "XcbAtom.h"

#include <cstdlib>
#include <cstring>

xcb_atom_t XcbAtom::intern(xcb_connection_t* c, const char* name)
{
    const xcb_intern_atom_cookie_t cookie = xcb_intern_atom(c, 0, uint16_t(strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(c, cookie, nullptr);
    const xcb_atom_t a = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    free(reply);
    return a;
}
