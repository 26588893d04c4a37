// The file server: HTTP/1.1 on the discovery port's TCP twin, GET and HEAD of the catalogue's
// files, one request per connection. At most kMaxConnections are served at once, each on a thread
// of its own; further clients wait in the listen queue.
#pragma once
#include "runtime/handles.h"
#include "runtime/thread.h"

#include <winsock2.h>

#include <atomic>
#include <cstdint>

class Catalogue;

class ShareServer : public wThread {
public:
    static constexpr long kMaxConnections = 64;

    explicit ShareServer(Catalogue& catalogue);
    ~ShareServer();

    // Listens on 0.0.0.0:port; 0 or the Winsock error code.
    uint32_t Open(uint16_t port);
    // Starts accepting.
    void Start();
    // Stops accepting, ends the connections (each within a quarter second) and waits for them.
    void Shutdown();

    // Served by a connection's own thread, which closes the connection when done.
    void Serve(UniqueSocket connection, const sockaddr_in& client);
    // Connections being served now.
    long Active() const { return active; }

protected:
    // Waits for a free connection slot and a client, then hands the client to a new thread.
    bool Loop() override;

private:
    // Called last by a connection's thread.
    void Finished();

    Catalogue& catalogue;
    UniqueSocket listener;
    UniqueHandle slots;  // semaphore of kMaxConnections
    std::atomic<long> active{0};
    std::atomic<bool> stopping{false};
};
