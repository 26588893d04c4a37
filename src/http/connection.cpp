// HttpConnection: the socket to the target's first address, the connect with its time-out, and
// recv() first with select() only when nothing is waiting.
#include "http/connection.h"
#include "http/resolve.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <cstring>

namespace {

// Windows 7 SP1 and later can make a socket handle not inheritable.
bool CanClearInherit()
{
    static const bool supported = [] {
        OSVERSIONINFOEXW info{};
        info.dwOSVersionInfoSize = sizeof(info);
        info.dwMajorVersion = 6;
        info.dwMinorVersion = 1;
        info.wServicePackMajor = 1;
        ULONGLONG mask = 0;
        mask = VerSetConditionMask(mask, VER_MAJORVERSION, VER_GREATER_EQUAL);
        mask = VerSetConditionMask(mask, VER_MINORVERSION, VER_GREATER_EQUAL);
        mask = VerSetConditionMask(mask, VER_SERVICEPACKMAJOR, VER_GREATER_EQUAL);
        return VerifyVersionInfoW(&info, VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR, mask) != FALSE;
    }();
    return supported;
}

}  // namespace

bool HttpConnection::Open(const std::wstring& host, uint32_t port)
{
    socket.Reset();
    std::memset(address, 0, sizeof(address));
    addressLength = 0;

    HostAddressList list = ResolveHost(host);
    int family = AF_UNSPEC;
    for (HostAddress* node = list.head; node && family == AF_UNSPEC; node = node->next) {
        int candidate = reinterpret_cast<sockaddr*>(node->address)->sa_family;
        if (candidate == AF_INET || candidate == AF_INET6) {
            family = candidate;
            addressLength = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
            std::memcpy(address, node->address, static_cast<size_t>(addressLength));
        }
    }
    FreeHostAddresses(list);
    if (addressLength == 0)
        return false;
    // sin_port and sin6_port share their offset.
    reinterpret_cast<sockaddr_in*>(address)->sin_port = htons(static_cast<u_short>(port));

    // Where the system can, the socket is made not inheritable as it is created: marking it
    // afterwards cost two more calls into the system (to Wine's server, under Wine).
    UniqueSocket opened(CanClearInherit() ? WSASocketW(family, SOCK_STREAM, IPPROTO_TCP, nullptr, 0,
                                                       WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT)
                                          : ::socket(family, SOCK_STREAM, IPPROTO_TCP));
    if (!opened)
        return false;
    u_long nonBlocking = 1;
    if (ioctlsocket(opened.Get(), FIONBIO, &nonBlocking) != 0)
        return false;
    socket = std::move(opened);
    return true;
}

bool HttpConnection::Connect(uint32_t timeoutMs)
{
    if (connect(socket.Get(), reinterpret_cast<sockaddr*>(address), addressLength) == SOCKET_ERROR &&
        WSAGetLastError() != WSAEWOULDBLOCK)
        return false;
    bool writable = false, failed = false;
    return WaitSocket(socket.Get(), timeoutMs, nullptr, &writable, &failed) && writable && !failed;
}

bool HttpConnection::Send(const void* bytes, size_t length)
{
    return send(socket.Get(), static_cast<const char*>(bytes), static_cast<int>(length), 0) != SOCKET_ERROR ||
           WSAGetLastError() == WSAEWOULDBLOCK;
}

int HttpConnection::Receive(char* buffer, size_t room)
{
    int got = recv(socket.Get(), buffer, static_cast<int>(room), 0);
    if (got >= 0)
        return got;
    return WSAGetLastError() == WSAEWOULDBLOCK ? -1 : 0;
}

bool HttpConnection::WaitReadable(uint32_t timeoutMs)
{
    bool readable = false, failed = false;
    return WaitSocket(socket.Get(), timeoutMs, &readable, nullptr, &failed) && readable && !failed;
}

void HttpConnection::Close()
{
    socket.Reset();
}
