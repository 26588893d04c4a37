// The file server's listener: a connection slot, then a client, then a thread for the client.
#include "peer/server.h"
#include "http/resolve.h"

#include <windows.h>

#include <memory>

namespace {

// How often waiting threads look at the stop flag.
constexpr uint32_t kSliceMs = 250;
// A connection's thread reserves this much stack; it needs little.
constexpr SIZE_T kStackBytes = 256 * 1024;
// The system's send buffer of a connection: large enough that a piece goes out in one send.
constexpr int kSendBufferBytes = 1 << 20;

struct Client {
    ShareServer* server;
    UniqueSocket socket;
    sockaddr_in address;
};

DWORD WINAPI ServeClient(void* parameter)
{
    std::unique_ptr<Client> client(static_cast<Client*>(parameter));
    client->server->Serve(std::move(client->socket), client->address);
    return 0;
}

}  // namespace

ShareServer::ShareServer(Catalogue& catalogue)
    : catalogue(catalogue), slots(CreateSemaphoreW(nullptr, kMaxConnections, kMaxConnections, nullptr))
{
}

ShareServer::~ShareServer()
{
    Shutdown();
}

uint32_t ShareServer::Open(uint16_t port)
{
    listener.Reset(WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_NO_HANDLE_INHERIT));
    if (!listener)
        return WSAGetLastError();
    sockaddr_in local = {};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    local.sin_addr.s_addr = INADDR_ANY;
    u_long nonBlocking = 1;
    uint32_t error = 0;
    if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0 ||
        listen(listener.Get(), SOMAXCONN) != 0 || ioctlsocket(listener.Get(), FIONBIO, &nonBlocking) != 0)
        error = WSAGetLastError();
    if (error != 0)
        listener.Reset();
    return error;
}

void ShareServer::Start()
{
    wThread::Start("ShareServer", 0x53485201, 0x53485202);
}

void ShareServer::Shutdown()
{
    stopping = true;
    Stop();
    while (active > 0)
        Sleep(10);
    listener.Reset();
}

bool ShareServer::Loop()
{
    while (WaitForSingleObject(slots.Get(), kSliceMs) == WAIT_TIMEOUT) {
        if (stopFlag)
            return false;
    }
    bool readable = false;
    while (!stopFlag && !readable)
        WaitSocket(listener.Get(), kSliceMs, &readable, nullptr, nullptr);
    UniqueSocket socket;
    sockaddr_in address = {};
    int length = sizeof(address);
    if (readable)
        socket.Reset(accept(listener.Get(), reinterpret_cast<sockaddr*>(&address), &length));
    if (!socket) {
        ReleaseSemaphore(slots.Get(), 1, nullptr);
        return !stopFlag;
    }
    u_long nonBlocking = 1;
    ioctlsocket(socket.Get(), FIONBIO, &nonBlocking);
    setsockopt(socket.Get(), SOL_SOCKET, SO_SNDBUF, reinterpret_cast<const char*>(&kSendBufferBytes),
               sizeof(kSendBufferBytes));
    ++active;
    auto client = std::make_unique<Client>(Client{this, std::move(socket), address});
    UniqueHandle thread(
        CreateThread(nullptr, kStackBytes, ServeClient, client.get(), STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
    if (!thread) {
        client.reset();
        Finished();
        return true;
    }
    // The thread owns the client from here.
    client.release();
    return true;
}

void ShareServer::Finished()
{
    ReleaseSemaphore(slots.Get(), 1, nullptr);
    --active;
}
