// Peer discovery on its own, as the manifest step runs it, for the item names given after the
// port; prints how long StartPeerSharing took and what each item holds afterwards. It broadcasts
// on every interface, so the tests run it only inside their own network namespace.
#include "runtime/clock.h"
#include "runtime/iocp.h"
#include "runtime/pool.h"
#include "discovery/datagrams.h"

#include <winsock2.h>
#include <cstdio>
#include <cwchar>

int wmain(int argc, wchar_t** argv)
{
    if (argc < 2)
        return 2;
    PoolInit();
    IocpStart();
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    uint16_t port = static_cast<uint16_t>(wcstoul(argv[1], nullptr, 10));
    std::list<UpdateItem> items;
    for (int i = 2; i < argc; ++i) {
        items.emplace_back();
        items.back().name = argv[i];
        items.back().hash = std::wstring(40, L'0');
    }
    uint64_t start = PerformanceMilliseconds();
    StartPeerSharing(items, port);
    std::printf("elapsed %llu\n", static_cast<unsigned long long>(PerformanceMilliseconds() - start));
    for (const UpdateItem& item : items)
        std::printf("%ls %ls %llu %u\n", item.name.c_str(), item.hash.c_str(),
                    static_cast<unsigned long long>(item.size), static_cast<unsigned>(item.peers.size()));
    WSACleanup();
    IocpShutdown();
    return 0;
}
