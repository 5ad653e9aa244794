#include "PeerCredentials.h"

#include <sys/socket.h>
#include <unistd.h>

bool PeerCredentials::isSameUser(qintptr fd)
{
    struct ucred cred = {};
    socklen_t len = sizeof(cred);
    if (getsockopt(int(fd), SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0 || len != sizeof(cred))
        return false;
    return cred.uid == getuid();
}
