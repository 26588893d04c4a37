// ResolveHost: GetAddrInfoW into a pooled, doubly linked list of socket addresses.
#include "http/resolve.h"
#include "runtime/pool.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <cstring>

HostAddressList ResolveHost(const std::wstring& host)
{
    HostAddressList list;
    ADDRINFOW hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    ADDRINFOW* found = nullptr;
    if (GetAddrInfoW(host.c_str(), L"0", &hints, &found) != 0)
        return list;
    for (ADDRINFOW* entry = found; entry; entry = entry->ai_next) {
        if (!entry->ai_addr || entry->ai_addrlen > sizeof(HostAddress::address))
            continue;
        auto* node = PoolNew<HostAddress>();  // value-initialised: zeroed
        std::memcpy(node->address, entry->ai_addr, entry->ai_addrlen);
        node->length = static_cast<int32_t>(entry->ai_addrlen);
        node->prev = list.tail;
        if (list.tail)
            list.tail->next = node;
        else
            list.head = node;
        list.tail = node;
        ++list.count;
    }
    FreeAddrInfoW(found);
    return list;
}

void FreeHostAddresses(HostAddressList& list)
{
    HostAddress* node = list.head;
    while (node) {
        HostAddress* next = node->next;
        PoolDelete(node);
        node = next;
    }
    list = HostAddressList();
}
