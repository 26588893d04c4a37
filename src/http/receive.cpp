// The receive loop: recv() first and select() only when no data is waiting, the head parsed once
// complete, the rest handed to the body sink; results are moved only when the response is complete.
#include "http/net.h"
#include "http/request.h"

#include <winsock2.h>
#include <cstring>

void HttpRequest::Receive(char* buffer)
{
    SOCKET s = static_cast<SOCKET>(socket);
    size_t fill = 0;
    bool inHead = true;
    for (;;) {
        int got = recv(s, buffer + fill, static_cast<int>(kReceiveBufferSize - fill), 0);
        if (got == 0)
            return;
        if (got < 0) {
            if (WSAGetLastError() != WSAEWOULDBLOCK)
                return;
            // What has arrived goes to the file before the wait, so the file grows with the body.
            if (!WriteBatch())
                return;
            bool readable = false, failed = false;
            if (!WaitSocket(socket, receiveTimeoutMs, &readable, nullptr, &failed) || !readable || failed)
                return;
            continue;
        }
        fill += static_cast<size_t>(got);

        if (inHead) {
            int64_t used = ParseHead(buffer, fill);
            if (used == 0)
                continue;
            if (used < 0)
                return;
            fill -= static_cast<size_t>(used);
            std::memmove(buffer, buffer + used, fill);
            inHead = false;
        }
        // Bytes after the head of a HEAD response are not a body.
        if (!headOnly) {
            int64_t used = TakeBody(buffer, fill);
            if (used < 0)
                return;
            fill -= static_cast<size_t>(used);
            std::memmove(buffer, buffer + used, fill);
        }
        if (received >= expected || headOnly)
            break;
    }

    status = workStatus;
    responseHeaders.clear();
    responseHeaders.swap(workHeaders);
    responseBody = workBody;
    workBody = nullptr;
    responseBodyLength = received;
}
