// The file server's listener: a connection slot, then a client, then a thread for the client.
#include "peer/server.h"
#include "http/net.h"

#include <windows.h>

namespace {

// How often waiting threads look at the stop flag.
constexpr uint32_t kSliceMs = 250;
// A connection's thread reserves this much stack; it needs little.
constexpr SIZE_T kStackBytes = 256 * 1024;
// The system's send buffer of a connection: large enough that a piece goes out in one send.
constexpr int kSendBufferBytes = 1 << 20;

struct Client {
    ShareServer* server;
    SOCKET socket;
    sockaddr_in address;
};

DWORD WINAPI ServeClient(void* parameter)
{
    Client client = *static_cast<Client*>(parameter);
    delete static_cast<Client*>(parameter);
    client.server->Serve(client.socket, client.address);
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
    CloseHandle(slots);
}

uint32_t ShareServer::Open(uint16_t port)
{
    listener = WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_NO_HANDLE_INHERIT);
    if (listener == INVALID_SOCKET)
        return WSAGetLastError();
    sockaddr_in local = {};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    local.sin_addr.s_addr = INADDR_ANY;
    u_long nonBlocking = 1;
    uint32_t error = 0;
    if (bind(listener, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0 ||
        listen(listener, SOMAXCONN) != 0 || ioctlsocket(listener, FIONBIO, &nonBlocking) != 0)
        error = WSAGetLastError();
    if (error != 0) {
        closesocket(listener);
        listener = INVALID_SOCKET;
    }
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
    if (listener != INVALID_SOCKET) {
        closesocket(listener);
        listener = INVALID_SOCKET;
    }
}

bool ShareServer::Loop()
{
    while (WaitForSingleObject(slots, kSliceMs) == WAIT_TIMEOUT) {
        if (stopFlag)
            return false;
    }
    bool readable = false;
    while (!stopFlag && !readable)
        WaitSocket(listener, kSliceMs, &readable, nullptr, nullptr);
    SOCKET socket = INVALID_SOCKET;
    sockaddr_in address = {};
    int length = sizeof(address);
    if (readable)
        socket = accept(listener, reinterpret_cast<sockaddr*>(&address), &length);
    if (socket == INVALID_SOCKET) {
        ReleaseSemaphore(slots, 1, nullptr);
        return !stopFlag;
    }
    u_long nonBlocking = 1;
    ioctlsocket(socket, FIONBIO, &nonBlocking);
    setsockopt(socket, SOL_SOCKET, SO_SNDBUF, reinterpret_cast<const char*>(&kSendBufferBytes),
               sizeof(kSendBufferBytes));
    ++active;
    auto* client = new Client{this, socket, address};
    HANDLE thread = CreateThread(nullptr, kStackBytes, ServeClient, client, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    if (!thread) {
        closesocket(socket);
        delete client;
        Finished();
        return true;
    }
    CloseHandle(thread);
    return true;
}

void ShareServer::Finished()
{
    ReleaseSemaphore(slots, 1, nullptr);
    --active;
}
