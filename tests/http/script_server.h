// A scripted HTTP server for the wire tests: one listening socket on 127.0.0.1 or ::1 with an
// ephemeral port, and a thread that serves one script per accepted connection, in order. For
// each connection it records the request (head, and body by its Content-Length), sends the
// script's chunks with their pauses (and after the events they wait for), then closes the
// connection or holds it until the client closes it. It talks to loopback only.
#pragma once
#include "support/patience.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

struct Chunk {
    std::string bytes;  // sent with one send()
    int pauseMs = 0;    // waited after it
    HANDLE gate = nullptr;  // an event waited for (PatienceMs at most) before it is sent
};

struct Script {
    std::vector<Chunk> chunks;
    bool hold = false;  // keep the connection open afterwards until the client closes it (10 s at most)
};

class ScriptServer {
public:
    explicit ScriptServer(int family = AF_INET) : family(family)
    {
        listener = socket(family, SOCK_STREAM, IPPROTO_TCP);
        sockaddr_storage address{};
        int length = Loopback(address, 0);
        bind(listener, reinterpret_cast<sockaddr*>(&address), length);
        listen(listener, 8);
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        port = ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
    }

    ~ScriptServer()
    {
        Finish();
        closesocket(listener);
    }

    ScriptServer(const ScriptServer&) = delete;
    ScriptServer& operator=(const ScriptServer&) = delete;

    uint16_t Port() const { return port; }

    // "http://HOST:PORT" followed by `path`; the host is the numeric loopback address by default.
    std::wstring Url(const std::wstring& path, const std::wstring& host = L"127.0.0.1") const
    {
        return L"http://" + host + L":" + std::to_wstring(port) + path;
    }

    // Serves the scripts on a thread, one per accepted connection.
    void Start(std::vector<Script> list)
    {
        scripts = std::move(list);
        thread = std::thread([this] { Run(); });
    }

    // Waits for the thread and returns the recorded requests, one per connection served.
    const std::vector<std::string>& Finish()
    {
        if (thread.joinable())
            thread.join();
        return requests;
    }

    // Whether a further connection is waiting to be accepted.
    bool HasExtraConnection()
    {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(listener, &set);
        timeval none{0, 0};
        return select(0, &set, nullptr, nullptr, &none) == 1;
    }

private:
    int Loopback(sockaddr_storage& address, uint16_t number) const
    {
        if (family == AF_INET6) {
            auto* v6 = reinterpret_cast<sockaddr_in6*>(&address);
            v6->sin6_family = AF_INET6;
            v6->sin6_addr = in6addr_loopback;
            v6->sin6_port = htons(number);
            return sizeof(sockaddr_in6);
        }
        auto* v4 = reinterpret_cast<sockaddr_in*>(&address);
        v4->sin_family = AF_INET;
        v4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        v4->sin_port = htons(number);
        return sizeof(sockaddr_in);
    }

    static bool Readable(SOCKET s, uint32_t timeoutMs)
    {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(s, &set);
        timeval timeout{static_cast<long>(timeoutMs / 1000), static_cast<long>(timeoutMs % 1000 * 1000)};
        return select(0, &set, nullptr, nullptr, &timeout) == 1;
    }

    // Reads the head and, by its Content-Length, the body of one request.
    static std::string ReadRequest(SOCKET s)
    {
        std::string request;
        char buffer[65536];
        size_t need = std::string::npos;
        while (request.size() < need && Readable(s, PatienceMs())) {
            int got = recv(s, buffer, sizeof(buffer), 0);
            if (got <= 0)
                break;
            request.append(buffer, static_cast<size_t>(got));
            size_t end = request.find("\r\n\r\n");
            if (need == std::string::npos && end != std::string::npos) {
                need = end + 4;
                size_t length = request.find("\r\nContent-Length: ");
                if (length != std::string::npos && length < end)
                    need += std::strtoul(request.c_str() + length + 18, nullptr, 10);
            }
        }
        return request;
    }

    static void SendAll(SOCKET s, const std::string& bytes)
    {
        size_t sent = 0;
        while (sent < bytes.size()) {
            int n = send(s, bytes.data() + sent, static_cast<int>(bytes.size() - sent), 0);
            if (n <= 0)
                return;
            sent += static_cast<size_t>(n);
        }
    }

    void Run()
    {
        for (const Script& script : scripts) {
            if (!Readable(listener, PatienceMs()))
                return;
            SOCKET s = accept(listener, nullptr, nullptr);
            if (s == INVALID_SOCKET)
                return;
            BOOL noDelay = TRUE;
            setsockopt(s, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&noDelay), sizeof(noDelay));
            requests.push_back(ReadRequest(s));
            for (const Chunk& chunk : script.chunks) {
                if (chunk.gate)
                    WaitForSingleObject(chunk.gate, PatienceMs());
                SendAll(s, chunk.bytes);
                if (chunk.pauseMs)
                    Sleep(static_cast<DWORD>(chunk.pauseMs));
            }
            if (script.hold) {
                char sink[4096];
                while (Readable(s, PatienceMs()) && recv(s, sink, sizeof(sink), 0) > 0) {
                }
            }
            closesocket(s);
        }
    }

    int family;
    SOCKET listener;
    uint16_t port = 0;
    std::vector<Script> scripts;
    std::vector<std::string> requests;
    std::thread thread;
};
