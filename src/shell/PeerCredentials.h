#pragma once

#include <QtGlobal>

// Who is at the other end of a local socket. One implementation per platform.
class PeerCredentials
{
public:
    // True when the peer of the connected local socket `fd` runs as this user.
    static bool isSameUser(qintptr fd);
};
