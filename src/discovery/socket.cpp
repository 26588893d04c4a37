// wSocket and wSocketUdp: opening, overlapped receives and sends, and the close protocol in
// which the last request to come back after a close releases the socket.
#include "discovery/socket.h"
#include "runtime/fatal.h"
#include "runtime/handles.h"
#include "runtime/io_request.h"
#include "runtime/iocp.h"
#include "runtime/pool.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t kCountMask = ~wSocket::kClosing;
constexpr int kBufferBytes = 0x40000;

// The completion key of every UDP socket: the request's owner handles it.
unsigned long UdpCompletion(_OVERLAPPED* overlapped)
{
    auto* request = reinterpret_cast<IoRequest*>(overlapped);
    static_cast<wSocket*>(request->owner)->OnCompletion(request);
    return 0;
}

// Receive errors after which the socket goes on: truncated or refused datagrams, unreachable
// peers and the like say nothing about the socket itself.
bool ReceiveContinues(uint32_t error)
{
    switch (error) {
    case 0:
    case ERROR_NETNAME_DELETED:
    case ERROR_MORE_DATA:
    case ERROR_NETWORK_UNREACHABLE:
    case ERROR_HOST_UNREACHABLE:
    case ERROR_PROTOCOL_UNREACHABLE:
    case ERROR_PORT_UNREACHABLE:
    case WSAEMSGSIZE:
    case WSAENETRESET:
    case WSAECONNRESET:
        return true;
    default:
        return false;
    }
}

}  // namespace

void wSocket::Release()
{
    free(receiveBuffer);
    receiveBuffer = nullptr;
    released = 1;
}

void wSocket::OnClosed() {}
void wSocket::OnReceive(IoRequest*) {}
void wSocket::OnSent(IoRequest*) {}

void wSocket::Close()
{
    uint32_t before = outstanding.fetch_or(kClosing);
    // Taken out once, whoever calls, and closed at once.
    UniqueSocket(socket.exchange(INVALID_SOCKET)).Reset();
    // With nothing in flight no completion will come back to release the socket.
    if (before == 0) {
        OnClosed();
        Release();
    }
}

bool wSocket::AddOutstanding()
{
    uint32_t value = outstanding.load();
    do {
        if (value & kClosing)
            return false;
    } while (!outstanding.compare_exchange_weak(value, value + 1));
    return true;
}

void wSocket::RemoveOutstanding()
{
    uint32_t after = outstanding.fetch_sub(1) - 1;
    if (after & 0x40000000u)
        FatalError(0x84013483);
    if (after == kClosing) {
        OnClosed();
        Release();
    }
}

void wSocket::CloseAndWait()
{
    Close();
    while (!released)
        Sleep(0);
    if (outstanding & kCountMask)
        FatalError(0x98489224);
}

wSocketUdp::~wSocketUdp()
{
    // Here, before the object loses its completion routine, every request must be back.
    CloseAndWait();
}

uint32_t wSocketUdp::Open(uint32_t address, uint16_t port, uint32_t receiveCount, uint32_t receiveSize,
                          bool shareAddress)
{
    if (socket.load() != INVALID_SOCKET || (outstanding & kCountMask) != 0)
        FatalError(0x89501355);
    outstanding = 0;
    released = 0;
    localAddress = {};
    localAddress.sin_family = AF_INET;
    localAddress.sin_port = htons(port);
    localAddress.sin_addr.s_addr = address;

    uint32_t error = 0;
    SOCKET created = WSASocketW(AF_INET, SOCK_DGRAM, IPPROTO_UDP, nullptr, 0,
                                WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    if (created == INVALID_SOCKET) {
        error = WSAGetLastError();
    } else {
        socket = created;
        BOOL on = TRUE;
        error = IocpBind(reinterpret_cast<HANDLE>(created), UdpCompletion);
        // Asked before the bind: a port is shared only when every socket on it asked.
        if (error == 0 && shareAddress &&
            setsockopt(created, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&on), sizeof(on)) != 0)
            error = WSAGetLastError();
        if (error == 0 && bind(created, reinterpret_cast<const sockaddr*>(&localAddress), sizeof(localAddress)) != 0)
            error = WSAGetLastError();
        if (error == 0 &&
            setsockopt(created, SOL_SOCKET, SO_BROADCAST, reinterpret_cast<const char*>(&on), sizeof(on)) != 0)
            error = WSAGetLastError();
    }
    if (error != 0) {
        Close();
        return error;
    }
    int bufferBytes = kBufferBytes;
    setsockopt(created, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&bufferBytes), sizeof(bufferBytes));
    setsockopt(created, SOL_SOCKET, SO_SNDBUF, reinterpret_cast<const char*>(&bufferBytes), sizeof(bufferBytes));

    receiveBuffer = static_cast<unsigned char*>(malloc(size_t(receiveCount) * receiveSize));
    if (!receiveBuffer)
        FatalError(0x10353175);
    for (uint32_t i = 0; i < receiveCount; ++i) {
        IoRequest* request = NewIoRequest();
        request->kind = kIoReceiveFrom;
        request->owner = this;
        request->refCount = 1;
        request->ownership = kBufferCallerOwned;
        request->buffer = receiveBuffer + size_t(i) * receiveSize;
        request->length = receiveSize;
        request->requested = receiveSize;
        ++outstanding;
        PostReceive(request);
    }
    return 0;
}

void wSocketUdp::PostReceive(IoRequest* request)
{
    ZeroMemory(&request->overlapped, sizeof(request->overlapped));
    request->error = 0;
    request->transferred = 0;
    request->addressLength = sizeof(request->address);
    WSABUF buffer{request->length, static_cast<char*>(request->buffer)};
    DWORD flags = 0;
    if (WSARecvFrom(socket.load(), &buffer, 1, nullptr, &flags, reinterpret_cast<sockaddr*>(request->address),
                    &request->addressLength, &request->overlapped, nullptr) != 0) {
        int error = WSAGetLastError();
        if (error != WSA_IO_PENDING) {
            request->error = static_cast<uint32_t>(error);
            IocpPost(UdpCompletion, &request->overlapped, 0);
        }
    }
}

void wSocketUdp::SendTo(const void* bytes, uint32_t length, const sockaddr_in& destination)
{
    if (!AddOutstanding())
        return;
    IoRequest* request = NewIoRequest();
    request->kind = kIoSendTo;
    request->owner = this;
    request->refCount = 1;
    request->ownership = kBufferPool;
    request->buffer = PoolAlloc(PoolClassFor(length));
    memcpy(request->buffer, bytes, length);
    request->length = length;
    request->requested = length;
    memcpy(request->address, &destination, sizeof(destination));
    request->addressLength = sizeof(destination);
    WSABUF buffer{length, static_cast<char*>(request->buffer)};
    if (WSASendTo(socket.load(), &buffer, 1, nullptr, 0, reinterpret_cast<const sockaddr*>(request->address),
                  request->addressLength, &request->overlapped, nullptr) != 0) {
        int error = WSAGetLastError();
        if (error != WSA_IO_PENDING) {
            Close();
            request->error = static_cast<uint32_t>(error);
            IocpPost(UdpCompletion, &request->overlapped, 0);
        }
    }
}

void wSocketUdp::OnCompletion(IoRequest* request)
{
    if (request->kind == kIoReceiveFrom) {
        OnReceive(request);
        if (ReceiveContinues(request->error) && !(outstanding & kClosing)) {
            PostReceive(request);
            return;
        }
        Close();
    } else if (request->kind == kIoSendTo) {
        OnSent(request);
    } else {
        return;
    }
    // Frees the request and a send's pooled copy, and runs any routine the request carries.
    CompleteIoRequest(&request->overlapped);
    RemoveOutstanding();
}
