// Name resolution and the single select() wait of the HTTP client.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

// One resolved socket address in a pooled list node.
struct HostAddress {
    HostAddress* prev;
    HostAddress* next;
    int32_t length;
    unsigned char address[128];
};

// The resolver's answers in its own order.
struct HostAddressList {
    HostAddress* head = nullptr;
    HostAddress* tail = nullptr;
    size_t count = 0;
};

// Looks `host` up (IPv4 and IPv6, TCP); a failed lookup gives an empty list.
HostAddressList ResolveHost(const std::wstring& host);
// Returns every node to the pool and empties the list.
void FreeHostAddresses(HostAddressList& list);

// One select() on `socket` for each condition whose pointer is given; each is set to whether the
// socket is in that set. False only when select() fails, so a time-out gives true with nothing ready.
bool WaitSocket(uintptr_t socket, uint32_t timeoutMs, bool* readable, bool* writable, bool* failed);
