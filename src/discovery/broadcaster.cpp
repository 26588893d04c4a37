// wSocketBroadcaster: the refresh pass over the interface, address and route tables, the
// socket map and the routing of outgoing datagrams.
#include "discovery/broadcaster.h"
#include "runtime/pool.h"
#include "runtime/system_function.h"
#include "runtime/text.h"

#include <ws2ipdef.h>
#include <iphlpapi.h>
#include <set>

namespace {

// The iphlpapi functions of the refresh pass.
struct NetworkTables {
    decltype(&GetIfTable2) interfaces;
    decltype(&GetUnicastIpAddressTable) addresses;
    decltype(&GetIpForwardTable2) routes;
    decltype(&FreeMibTable) free;
};

// iphlpapi is loaded by the first call, which a run that looks for peers makes ahead of the
// first pass (PrepareBroadcaster).
const NetworkTables& LoadNetworkTables()
{
    static const NetworkTables tables{
        SystemFunctionOf<decltype(&GetIfTable2)>(L"iphlpapi.dll", "GetIfTable2"),
        SystemFunctionOf<decltype(&GetUnicastIpAddressTable)>(L"iphlpapi.dll", "GetUnicastIpAddressTable"),
        SystemFunctionOf<decltype(&GetIpForwardTable2)>(L"iphlpapi.dll", "GetIpForwardTable2"),
        SystemFunctionOf<decltype(&FreeMibTable)>(L"iphlpapi.dll", "FreeMibTable"),
    };
    return tables;
}

}  // namespace

void PrepareBroadcaster()
{
    LoadNetworkTables();
}

void wSocketBroadcaster::UdpSocket::OnReceive(IoRequest* request)
{
    owner->handler(this, request);
}

wSocketBroadcaster::wSocketBroadcaster(uint16_t port, Handler handler) : port(port), handler(handler) {}

wSocketBroadcaster::~wSocketBroadcaster()
{
    // Stopped here, while End still belongs to this class.
    Stop();
}

bool wSocketBroadcaster::Loop()
{
    WaitForSingleObject(wakeEvent.Get(), 2000);
    if (!stopFlag)
        Refresh();
    return true;
}

void wSocketBroadcaster::Refresh()
{
    // The pass needs only which interfaces are up, their IPv4 addresses with prefix lengths,
    // and which interfaces hold a default route. The IP-interface, neighbour and adapter tables
    // are not gathered (GetIpInterfaceTable is not even supported under Wine).
    MIB_IF_TABLE2* interfaces = nullptr;
    MIB_UNICASTIPADDRESS_TABLE* addresses = nullptr;
    MIB_IPFORWARD_TABLE2* routes = nullptr;
    const NetworkTables& tables = LoadNetworkTables();
    if (tables.interfaces(&interfaces) == NO_ERROR && tables.addresses(AF_INET, &addresses) == NO_ERROR) {
        std::set<NET_IFINDEX> up, withGateway;
        for (ULONG i = 0; i < interfaces->NumEntries; ++i) {
            if (interfaces->Table[i].OperStatus == IfOperStatusUp)
                up.insert(interfaces->Table[i].InterfaceIndex);
        }
        if (tables.routes(AF_INET, &routes) == NO_ERROR) {
            for (ULONG i = 0; i < routes->NumEntries; ++i) {
                if (routes->Table[i].DestinationPrefix.PrefixLength == 0)
                    withGateway.insert(routes->Table[i].InterfaceIndex);
            }
        }
        for (ULONG i = 0; i < addresses->NumEntries; ++i) {
            const MIB_UNICASTIPADDRESS_ROW& row = addresses->Table[i];
            uint32_t address = row.Address.Ipv4.sin_addr.s_addr;
            const auto* bytes = reinterpret_cast<const unsigned char*>(&address);
            if (row.Address.si_family != AF_INET || !up.count(row.InterfaceIndex) || bytes[0] == 127)
                continue;
            std::string key = FormatA("%d.%d.%d.%d:%d", bytes[0], bytes[1], bytes[2], bytes[3], port);
            if (Knows(key))
                continue;
            auto* socket = PoolNew<UdpSocket>(this, withGateway.count(row.InterfaceIndex) != 0,
                                              static_cast<uint8_t>(row.OnLinkPrefixLength));
            // The port is shared with a share peer on this machine, which holds it on the wildcard
            // address: broadcasts reach both, unicast answers to this address reach this socket.
            if (socket->Open(address, port, receiveCount, receiveSize, true) != 0) {
                PoolDelete(socket);
                continue;
            }
            ExclusiveLock adding(socketsLock);
            sockets[key] = socket;
        }
    }
    for (void* table : {static_cast<void*>(routes), static_cast<void*>(addresses), static_cast<void*>(interfaces)}) {
        if (table)
            tables.free(table);
    }
}

void wSocketBroadcaster::End()
{
    ExclusiveLock closing(socketsLock);
    for (auto& entry : sockets)
        PoolDelete(entry.second);
    sockets.clear();
}

bool wSocketBroadcaster::Knows(const std::string& key)
{
    SharedLock reading(socketsLock);
    return sockets.count(key) != 0;
}

void wSocketBroadcaster::Send(const void* bytes, uint32_t length, const sockaddr_in& destination)
{
    SharedLock sending(socketsLock);
    if (destination.sin_addr.s_addr == INADDR_BROADCAST) {
        for (auto& entry : sockets)
            entry.second->SendTo(bytes, length, destination);
    } else if (UdpSocket* socket = Route(sockets, destination.sin_addr.s_addr)) {
        socket->SendTo(bytes, length, destination);
    }
}

wSocketBroadcaster::UdpSocket* wSocketBroadcaster::Route(const SocketMap& sockets, uint32_t destination)
{
    uint32_t target = ntohl(destination);
    UdpSocket* gateway = nullptr;
    for (const auto& entry : sockets) {
        UdpSocket* socket = entry.second;
        // The first prefixLength bits in network order; a prefix of 0 holds every address.
        unsigned bits = socket->prefixLength < 32 ? socket->prefixLength : 32;
        uint32_t mask = bits == 0 ? 0 : 0xFFFFFFFFu << (32 - bits);
        if (((ntohl(socket->LocalAddress().sin_addr.s_addr) ^ target) & mask) == 0)
            return socket;
        if (!gateway && socket->hasGateway)
            gateway = socket;
    }
    return gateway;
}
