// StartPeerSharing: the broadcaster runs for one discovery of at most about half a second,
// query bursts go out every 200 ms, and answers arriving on the completion-port workers are
// applied to the caller's items.
#include "discovery/datagrams.h"
#include "runtime/clock.h"
#include "runtime/handles.h"
#include "runtime/io_request.h"
#include "runtime/logger.h"
#include "discovery/broadcaster.h"

namespace {

constexpr uint64_t kDiscoveryMs = 500;
constexpr uint64_t kBurstEveryMs = 200;

// Guards the items while discovery runs: answers change peers, hashes and sizes on the
// workers while the discovery loop reads them to build queries and to see whether it is done.
// Once the broadcaster has stopped no answer can arrive any more, so later readers need no lock.
SrwLock itemsLock;

void ReceiveAnswer(wSocketBroadcaster::UdpSocket* socket, IoRequest* request);

// The broadcaster of one discovery, holding what its answers are applied to.
class Discovery final : public wSocketBroadcaster {
public:
    Discovery(std::list<UpdateItem>& items, uint16_t port)
        : wSocketBroadcaster(port, ReceiveAnswer), items(items), port(port), prefix(PeerPrefix(port))
    {
    }

    std::list<UpdateItem>& items;
    const uint16_t port;
    const std::string prefix;
};

void ReceiveAnswer(wSocketBroadcaster::UdpSocket* socket, IoRequest* request)
{
    const auto* from = reinterpret_cast<const sockaddr_in*>(request->address);
    if (request->addressLength < static_cast<int32_t>(sizeof(sockaddr_in)) || from->sin_family != AF_INET)
        return;
    auto& discovery = *static_cast<Discovery*>(socket->owner);
    ExclusiveLock applying(itemsLock);
    ApplyPeerAnswer(static_cast<const unsigned char*>(request->buffer), request->transferred,
                    from->sin_addr.s_addr, discovery.prefix, discovery.items);
}

bool EveryItemHasPeer(const std::list<UpdateItem>& items)
{
    SharedLock reading(itemsLock);
    for (const UpdateItem& item : items) {
        if (item.peers.empty())
            return false;
    }
    return true;
}

void SendQueryBurst(Discovery& discovery)
{
    std::vector<std::string> queries;
    {
        SharedLock reading(itemsLock);
        queries = BuildPeerQueries(discovery.items, discovery.port);
    }
    sockaddr_in everyone = {};
    everyone.sin_family = AF_INET;
    everyone.sin_port = htons(discovery.port);
    everyone.sin_addr.s_addr = INADDR_BROADCAST;
    for (const std::string& query : queries)
        discovery.Send(query.data(), static_cast<uint32_t>(query.size()), everyone);
}

}  // namespace

void StartPeerSharing(std::list<UpdateItem>& items, uint16_t port)
{
    LogA("Finding peers in local network...");
    Discovery discovery(items, port);
    // The first pass runs here, so the first queries do not wait for a new thread to start.
    discovery.Refresh();
    discovery.Start("wSocketBroadcaster", 0x62401937, 0x62401938);

    uint64_t start = PerformanceMilliseconds();
    uint64_t lastBurst = 0;
    bool sent = false;
    for (;;) {
        uint64_t now = PerformanceMilliseconds();
        if (now - start >= kDiscoveryMs || EveryItemHasPeer(items))
            break;
        if (!sent || now - lastBurst >= kBurstEveryMs) {
            SendQueryBurst(discovery);
            lastBurst = now;
            sent = true;
        }
        Sleep(1);
    }
    discovery.Stop();
}
