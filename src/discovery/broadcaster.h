// wSocketBroadcaster: a thread that keeps one UDP socket per usable local IPv4 address,
// refreshed every two seconds, routes outgoing datagrams to them and hands every received
// datagram to one handler.
#pragma once
#include "runtime/handles.h"
#include "runtime/thread.h"
#include "discovery/socket.h"

#include <cstdint>
#include <map>
#include <string>

// Loads the system DLL that the refresh pass reads the tables with, which the first pass would
// otherwise load while a discovery waits for it (under Wine about 8 ms).
void PrepareBroadcaster();

class wSocketBroadcaster : public wThread {
public:
    class UdpSocket : public wSocketUdp {
    public:
        UdpSocket(wSocketBroadcaster* owner, bool hasGateway, uint8_t prefixLength)
            : owner(owner), hasGateway(hasGateway), prefixLength(prefixLength)
        {
        }
        // Hands the datagram to the owner's handler.
        void OnReceive(IoRequest* request) override;

        wSocketBroadcaster* const owner;
        const bool hasGateway;       // the socket's interface has a default route
        const uint8_t prefixLength;  // on-link prefix length of its address, 0 to 32
    };
    using SocketMap = std::map<std::string, UdpSocket*>;
    // Runs on completion-port workers for every datagram that arrives on any socket.
    using Handler = void (*)(UdpSocket* socket, IoRequest* request);

    // Sockets are bound to `port` (host byte order) once the thread runs.
    wSocketBroadcaster(uint16_t port, Handler handler);
    ~wSocketBroadcaster();

    // 255.255.255.255 goes out through every socket; any other destination through the socket
    // that Route picks, or nowhere.
    void Send(const void* bytes, uint32_t length, const sockaddr_in& destination);
    // The socket for a unicast destination (network byte order): the first in key order whose
    // subnet holds it, else the first with a default route; null when there is neither.
    static UdpSocket* Route(const SocketMap& sockets, uint32_t destination);

    // One refresh pass: a socket for every usable local IPv4 address that has none yet. The
    // owner makes the first pass itself before it starts the thread, which makes the others.
    void Refresh();

protected:
    // A wait of up to 2000 ms on the wake event, then a refresh pass unless the thread stops.
    bool Loop() override;
    // Closes and destroys every socket.
    void End() override;

private:
    // Whether a socket with this key is open already.
    bool Knows(const std::string& key);

    SocketMap sockets;  // key "a.b.c.d:port"
    SrwLock socketsLock;
    const uint16_t port;
    const uint32_t receiveCount = 1;
    const uint32_t receiveSize = 2048;
    const Handler handler;
};
