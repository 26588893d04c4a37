// One pass of HttpRequest: the socket to the target's first address, the connect with its
// time-out, the request sent with one send(), and the pooled receive buffer.
#include "http/net.h"
#include "http/request.h"
#include "runtime/pool.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <cstring>

namespace {

// Windows 7 SP1 and later can mark a socket handle not inheritable.
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

// A send() that failed with anything but WSAEWOULDBLOCK; a partial send counts as sent.
bool SendFailed(SOCKET s, const char* bytes, int length)
{
    return send(s, bytes, length, 0) == SOCKET_ERROR && WSAGetLastError() != WSAEWOULDBLOCK;
}

}  // namespace

bool HttpRequest::OpenSocket()
{
    HostAddressList list = ResolveHost(target.host);
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
    reinterpret_cast<sockaddr_in*>(address)->sin_port = htons(static_cast<u_short>(target.port));

    SOCKET s = ::socket(family, SOCK_STREAM, IPPROTO_TCP);
    if (s == INVALID_SOCKET)
        return false;
    u_long nonBlocking = 1;
    if (ioctlsocket(s, FIONBIO, &nonBlocking) != 0) {
        closesocket(s);
        return false;
    }
    if (CanClearInherit())
        SetHandleInformation(reinterpret_cast<HANDLE>(s), HANDLE_FLAG_INHERIT, 0);
    socket = static_cast<uintptr_t>(s);
    return true;
}

void HttpRequest::Exchange()
{
    SOCKET s = static_cast<SOCKET>(socket);
    if (connect(s, reinterpret_cast<sockaddr*>(address), addressLength) == SOCKET_ERROR &&
        WSAGetLastError() != WSAEWOULDBLOCK)
        return;
    bool writable = false, failed = false;
    if (!WaitSocket(socket, connectTimeoutMs, nullptr, &writable, &failed) || !writable || failed)
        return;

    if (method.empty())
        method = body ? L"POST" : L"GET";
    headOnly = EqualsNoCase(method, L"HEAD");
    if (sendRaw) {
        std::string raw = WideToUtf8(method);
        if (SendFailed(s, raw.data(), static_cast<int>(raw.size())))
            return;
        method.clear();
    }
    std::string head = WideToUtf8(BuildHead());
    if (SendFailed(s, head.data(), static_cast<int>(head.size())))
        return;
    if (body && bodyLength > 0 && SendFailed(s, static_cast<const char*>(body), bodyLength))
        return;

    rateActiveLimit = rateLimit;
    auto* buffer = static_cast<char*>(PoolAlloc(PoolClassFor(kReceiveBufferSize)));
    Receive(buffer);
    PoolFree(buffer);
    PoolFree(workBody);
    workBody = nullptr;
    EndBody();
    file.Close();
}
