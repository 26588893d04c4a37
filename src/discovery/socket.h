// wSocket and wSocketUdp: a UDP socket bound to one local IPv4 address whose receives and
// sends are overlapped operations completed on the process's completion port.
#pragma once
#include <winsock2.h>

#include <atomic>
#include <cstdint>

struct IoRequest;

class wSocket {
public:
    // Set in `outstanding` when the socket is closed; no operation is counted after it.
    static constexpr uint32_t kClosing = 0x80000000u;

    wSocket() = default;
    // A derived class that completes requests closes the socket and waits for its requests in
    // its own destructor (CloseAndWait), while its completion routine still exists.
    virtual ~wSocket() = default;
    wSocket(const wSocket&) = delete;
    wSocket& operator=(const wSocket&) = delete;

    // Frees the receive buffer and marks the socket released.
    virtual void Release();
    // Dispatches a finished request by its kind.
    virtual void OnCompletion(IoRequest* request) = 0;
    // The last request came back after a close.
    virtual void OnClosed();
    // A datagram arrived in request->buffer (request->transferred bytes, sender in request->address).
    virtual void OnReceive(IoRequest* request);
    // A send finished.
    virtual void OnSent(IoRequest* request);

    // Closes the handle once, whoever calls; requests in flight then come back with errors.
    void Close();
    const sockaddr_in& LocalAddress() const { return localAddress; }

protected:
    // Counts one more operation; false once the socket is closing.
    bool AddOutstanding();
    // Uncounts a finished operation; the last one after a close releases the socket.
    void RemoveOutstanding();
    // Close, then wait in a Sleep(0) loop for the release.
    void CloseAndWait();

    std::atomic<uint8_t> released{0};
    std::atomic<uint32_t> outstanding{0};
    std::atomic<SOCKET> socket{INVALID_SOCKET};
    sockaddr_in localAddress = {};
    unsigned char* receiveBuffer = nullptr;
};

class wSocketUdp : public wSocket {
public:
    // Closes the socket and waits until every request in flight has come back.
    ~wSocketUdp() override;

    // Opens, binds and starts `receiveCount` receives of `receiveSize` bytes each. The address
    // is in network byte order, the port in host byte order. With shareAddress the port can be
    // held by other sockets that ask for the same (the updater's discovery and the share peer on
    // one machine). 0 or the Windows error code.
    uint32_t Open(uint32_t address, uint16_t port, uint32_t receiveCount, uint32_t receiveSize,
                  bool shareAddress = false);
    // Sends a pooled copy of the bytes; a send that cannot be started closes the socket.
    void SendTo(const void* bytes, uint32_t length, const sockaddr_in& destination);
    void OnCompletion(IoRequest* request) override;

private:
    // Resets the request and posts it as a receive; an immediate failure comes back through the port.
    void PostReceive(IoRequest* request);
};
