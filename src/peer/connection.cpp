// One connection of the file server: the request head read within its time-out, the answer, the
// file streamed in bounded pieces, the log line, and an orderly close.
#include "http_server/request_head.h"
#include "peer/catalogue.h"
#include "peer/server.h"
#include "runtime/logger.h"
#include "runtime/text.h"
#include "http_server/target.h"

#include <windows.h>

#include <cstdlib>

namespace {

constexpr uint64_t kHeadTimeoutMs = 10000;
constexpr uint64_t kStallTimeoutMs = 10000;
constexpr uint32_t kSliceMs = 250;
// Bytes a request head may take before it is refused; one more tells the reader it is too long.
constexpr size_t kHeadRoom = kMaxRequestHead + 1;
// Each connection streams its file through one buffer of this size. Under Wine every send is a
// round trip through the Wine server: 200 MiB went out at 93 MiB/s in pieces of 64 KiB and at
// 215 MiB/s in pieces of 256 KiB with a 1 MiB send buffer (the same as nginx on that link).
constexpr uint32_t kPieceSize = 256 * 1024;
// After the answer, what the client still sends is read and dropped for this long, so that
// closing with unread bytes does not reset the connection before the client has read the answer.
constexpr uint64_t kLingerMs = 1000;
// The request line in the log is cut at this many bytes.
constexpr size_t kLoggedLine = 200;

const char* ReasonPhrase(uint32_t status)
{
    switch (status) {
    case 200: return "OK";
    case 400: return "Bad Request";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 408: return "Request Timeout";
    case 414: return "URI Too Long";
    case 431: return "Request Header Fields Too Large";
    case 505: return "HTTP Version Not Supported";
    default: return "Error";
    }
}

// Waits in short slices until the socket can be read (or written), has failed or was closed;
// false when the deadline passes, the server stops or the wait fails. One poll entry for the
// socket, where a select() would list it twice (to be read or written, and for errors): with
// many connections waiting that way at once the Wine server aborts on an assertion in its poll
// completion, which ends every program of the prefix. WSAPoll reports errors and hang-ups with
// either wait.
bool WaitReady(SOCKET socket, bool write, uint64_t deadline, const std::atomic<bool>& stopping)
{
    for (;;) {
        uint64_t now = GetTickCount64();
        if (stopping || now >= deadline)
            return false;
        int slice = static_cast<int>(deadline - now < kSliceMs ? deadline - now : kSliceMs);
        WSAPOLLFD entry = {};
        entry.fd = socket;
        entry.events = write ? POLLWRNORM : POLLRDNORM;
        int ready = WSAPoll(&entry, 1, slice);
        if (ready == SOCKET_ERROR)
            return false;
        if (ready > 0)
            return true;
    }
}

// Sends every byte, waiting while the client makes progress; false when it stalls for
// kStallTimeoutMs, the connection fails or the server stops.
bool SendAll(SOCKET socket, const char* bytes, size_t count, const std::atomic<bool>& stopping)
{
    while (count > 0) {
        int sent = send(socket, bytes, static_cast<int>(count < 0x40000000 ? count : 0x40000000), 0);
        if (sent > 0) {
            bytes += sent;
            count -= static_cast<size_t>(sent);
            continue;
        }
        if (sent < 0 && WSAGetLastError() == WSAEWOULDBLOCK &&
            WaitReady(socket, true, GetTickCount64() + kStallTimeoutMs, stopping))
            continue;
        return false;
    }
    return true;
}

// The request line as the log shows it: control bytes and bytes above ASCII as "%XX", cut.
std::wstring LoggedLine(const char* head, size_t count)
{
    std::string line;
    for (size_t i = 0; i < count && head[i] != '\r' && head[i] != '\n'; ++i) {
        if (line.size() >= kLoggedLine) {
            line += "...";
            break;
        }
        auto c = static_cast<unsigned char>(head[i]);
        line += c >= 0x20 && c < 0x7F ? std::string(1, static_cast<char>(c)) : FormatA("%%%02X", c);
    }
    return Utf8ToWide(line);
}

}  // namespace

void ShareServer::Serve(UniqueSocket connection, const sockaddr_in& client)
{
    SOCKET socket = connection.Get();
    uint64_t started = GetTickCount64();
    char head[kHeadRoom];
    size_t have = 0;
    RequestHead request;
    int64_t used = 0;
    uint32_t status = 0;
    while (used == 0) {
        int count = recv(socket, head + have, static_cast<int>(sizeof(head) - have), 0);
        if (count > 0) {
            have += static_cast<size_t>(count);
            used = ParseRequestHead(head, have, request);
            if (used == 0 && have == sizeof(head)) {
                used = -1;
                request.refusal = 431;
            }
            continue;
        }
        if (count < 0 && WSAGetLastError() == WSAEWOULDBLOCK) {
            if (WaitReady(socket, false, started + kHeadTimeoutMs, stopping))
                continue;
            status = stopping ? 0 : 408;
        } else {
            // Closed or failed before the head was complete.
            status = count == 0 && have > 0 ? 400 : 0;
        }
        break;
    }
    if (used != 0)
        status = used > 0 ? 200 : request.refusal;

    uint64_t sent = 0;
    uint64_t elapsed = 0;  // until the answer was sent, without the wait for the client's close
    UniqueHandle file;
    uint64_t size = 0;
    if (status == 200) {
        std::wstring name = NameFromTarget(request.target);
        if (!name.empty())
            file = catalogue.OpenCurrent(name, size);
        if (!file)
            status = 404;
    }
    if (status != 0) {
        std::string answer = FormatA("HTTP/1.1 %u %s\r\nContent-Length: %I64u\r\nConnection: close\r\n", status,
                                     ReasonPhrase(status), status == 200 ? size : 0ull);
        if (status == 200)
            answer += "Content-Type: application/octet-stream\r\n";
        if (status == 405)
            answer += "Allow: GET, HEAD\r\n";
        answer += "\r\n";
        bool open = SendAll(socket, answer.data(), answer.size(), stopping);
        if (open && file && request.method == "GET") {
            char* piece = static_cast<char*>(malloc(kPieceSize));
            while (open && piece && sent < size) {
                DWORD want = static_cast<DWORD>(size - sent < kPieceSize ? size - sent : kPieceSize);
                DWORD read = 0;
                // A file that shrank under a writer outside this system ends the connection early:
                // the client sees fewer bytes than announced.
                if (!ReadFile(file.Get(), piece, want, &read, nullptr) || read == 0)
                    break;
                open = SendAll(socket, piece, read, stopping);
                if (open)
                    sent += read;
            }
            free(piece);
        }
        elapsed = GetTickCount64() - started;
        if (sent == size || !file || request.method != "GET") {
            shutdown(socket, SD_SEND);
            uint64_t until = GetTickCount64() + kLingerMs;
            char drain[4096];
            for (;;) {
                int count = recv(socket, drain, sizeof(drain), 0);
                if (count > 0)
                    continue;
                if (count < 0 && WSAGetLastError() == WSAEWOULDBLOCK && WaitReady(socket, false, until, stopping))
                    continue;
                break;
            }
        }
    }
    file.Reset();
    connection.Reset();
    if (have > 0 || status != 0)
        LogW(L"Request from %s: \"%s\" -> %u (%I64u bytes, %I64u ms)", FormatIPv4(client.sin_addr.s_addr).c_str(),
             LoggedLine(head, have).c_str(), status, sent, status != 0 ? elapsed : GetTickCount64() - started);
    Finished();
}
