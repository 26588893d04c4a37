// HttpConnection: one non-blocking TCP connection to the first IPv4 or IPv6 address of a host,
// whose connect and receive waits end after the caller's time-outs. It knows nothing of HTTP.
#pragma once
#include "runtime/handles.h"

#include <cstddef>
#include <cstdint>
#include <string>

struct sockaddr;

class HttpConnection {
public:
    // Closes any earlier socket, resolves `host` and opens a non-blocking, non-inheritable socket
    // for the first IPv4 or IPv6 address in the resolver's order, with `port`. False when the host
    // has no such address or the socket cannot be made.
    bool Open(const std::wstring& host, uint32_t port);
    // connect() and the wait for it; false on an error or when `timeoutMs` passes first.
    bool Connect(uint32_t timeoutMs);
    // One send(); false when it fails with anything but WSAEWOULDBLOCK. A partial send counts as sent.
    bool Send(const void* bytes, size_t length);
    // One recv() of at most `room` bytes: the number received; 0 when the connection has ended
    // (closed by the peer, failed, or no room); -1 when nothing has arrived yet.
    int Receive(char* buffer, size_t room);
    // Waits for more to receive; false on an error, an exceptional condition, or when `timeoutMs`
    // passes first.
    bool WaitReadable(uint32_t timeoutMs);
    void Close();

    uintptr_t Socket() const { return socket.Get(); }
    // The address of the last Open, kept after Close; zeroed when Open found none.
    const sockaddr* Address() const { return reinterpret_cast<const sockaddr*>(address); }
    int32_t AddressLength() const { return addressLength; }

private:
    UniqueSocket socket;
    alignas(8) unsigned char address[128] = {};
    int32_t addressLength = 0;
};
