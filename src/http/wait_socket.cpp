// WaitSocket: one select() over the conditions the caller asks for.
#include "http/resolve.h"

#include <winsock2.h>

bool WaitSocket(uintptr_t socket, uint32_t timeoutMs, bool* readable, bool* writable, bool* failed)
{
    SOCKET s = static_cast<SOCKET>(socket);
    fd_set readSet, writeSet, exceptSet;
    FD_ZERO(&readSet);
    FD_ZERO(&writeSet);
    FD_ZERO(&exceptSet);
    if (readable)
        FD_SET(s, &readSet);
    if (writable)
        FD_SET(s, &writeSet);
    if (failed)
        FD_SET(s, &exceptSet);
    timeval timeout;
    timeout.tv_sec = static_cast<long>(timeoutMs / 1000);
    timeout.tv_usec = static_cast<long>(timeoutMs % 1000) * 1000;
    if (select(0, readable ? &readSet : nullptr, writable ? &writeSet : nullptr, failed ? &exceptSet : nullptr,
               &timeout) == SOCKET_ERROR)
        return false;
    if (readable)
        *readable = FD_ISSET(s, &readSet) != 0;
    if (writable)
        *writable = FD_ISSET(s, &writeSet) != 0;
    if (failed)
        *failed = FD_ISSET(s, &exceptSet) != 0;
    return true;
}
