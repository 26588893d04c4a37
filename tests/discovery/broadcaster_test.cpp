// wSocketBroadcaster::Route over a table of sockets that are never opened: the first subnet in
// key order that holds the destination, else the first socket with a default route.
#include <gtest/gtest.h>
#include "discovery/broadcaster.h"

#include <ws2tcpip.h>

#include <memory>
#include <vector>

namespace {

uint32_t Address(const char* text)
{
    uint32_t address = 0;
    inet_pton(AF_INET, text, &address);
    return address;
}

// A socket with an address and nothing bound: Route reads only address, prefix and gateway.
class FakeSocket : public wSocketBroadcaster::UdpSocket {
public:
    FakeSocket(const char* address, uint8_t prefixLength, bool hasGateway)
        : UdpSocket(nullptr, hasGateway, prefixLength)
    {
        localAddress.sin_family = AF_INET;
        localAddress.sin_addr.s_addr = Address(address);
    }
};

class Table {
public:
    void Add(const char* address, uint8_t prefixLength, bool hasGateway)
    {
        owned.push_back(std::make_unique<FakeSocket>(address, prefixLength, hasGateway));
        sockets[std::string(address) + ":8090"] = owned.back().get();
    }
    // The address of the socket chosen for the destination, or "none".
    std::string RouteTo(const char* destination) const
    {
        wSocketBroadcaster::UdpSocket* socket = wSocketBroadcaster::Route(sockets, Address(destination));
        if (!socket)
            return "none";
        char text[16];
        inet_ntop(AF_INET, &socket->LocalAddress().sin_addr, text, sizeof(text));
        return text;
    }

private:
    std::vector<std::unique_ptr<FakeSocket>> owned;
    wSocketBroadcaster::SocketMap sockets;
};

}  // namespace

TEST(BroadcasterRoute, SubnetThenDefaultRoute)
{
    Table table;
    table.Add("10.77.1.1", 24, false);
    table.Add("10.77.2.1", 24, false);
    table.Add("192.168.5.9", 16, true);
    EXPECT_EQ(table.RouteTo("10.77.1.200"), "10.77.1.1");
    EXPECT_EQ(table.RouteTo("10.77.2.7"), "10.77.2.1");
    EXPECT_EQ(table.RouteTo("192.168.200.1"), "192.168.5.9");
    // Outside every subnet: through the interface with a default route.
    EXPECT_EQ(table.RouteTo("10.77.3.1"), "192.168.5.9");
    EXPECT_EQ(table.RouteTo("8.8.8.8"), "192.168.5.9");
}

TEST(BroadcasterRoute, NothingMatchesAndNoGatewayGoesNowhere)
{
    Table table;
    EXPECT_EQ(table.RouteTo("10.0.0.1"), "none");
    table.Add("10.77.1.1", 24, false);
    EXPECT_EQ(table.RouteTo("10.77.2.1"), "none");
}

TEST(BroadcasterRoute, FirstInKeyOrderWinsOverLongerPrefix)
{
    Table table;
    table.Add("10.77.1.1", 24, true);
    table.Add("10.0.0.1", 8, false);
    table.Add("172.16.0.1", 12, true);
    // "10.0.0.1:8090" sorts before "10.77.1.1:8090".
    EXPECT_EQ(table.RouteTo("10.77.1.9"), "10.0.0.1");
    // Of two sockets with a default route the first in key order is taken.
    EXPECT_EQ(table.RouteTo("1.2.3.4"), "10.77.1.1");
}

TEST(BroadcasterRoute, PrefixesCountBitsInNetworkOrder)
{
    Table table;
    table.Add("172.16.16.1", 20, false);
    table.Add("10.1.2.3", 32, false);
    table.Add("192.168.0.1", 0, false);
    EXPECT_EQ(table.RouteTo("172.16.31.255"), "172.16.16.1");
    EXPECT_EQ(table.RouteTo("172.16.16.0"), "172.16.16.1");
    EXPECT_EQ(table.RouteTo("172.16.32.1"), "192.168.0.1");
    EXPECT_EQ(table.RouteTo("172.16.15.255"), "192.168.0.1");
    EXPECT_EQ(table.RouteTo("10.1.2.3"), "10.1.2.3");
    EXPECT_EQ(table.RouteTo("10.1.2.4"), "192.168.0.1");
}
