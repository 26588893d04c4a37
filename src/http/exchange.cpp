// One pass of HttpRequest: the connect, the request sent with one send() (and the body with
// another), and the receive loop over a pooled buffer: recv() first and a wait only when nothing
// has arrived, the head parsed once complete, the rest handed to the body sink (through a larger
// buffer for a long body). Results are moved only when the response is complete.
#include "http/request.h"
#include "runtime/clock.h"
#include "runtime/pool.h"

#include <cstring>

void HttpRequest::Exchange()
{
    if (!connection.Connect(connectTimeoutMs))
        return;
    if (method.empty())
        method = body ? L"POST" : L"GET";
    bool headOnly = EqualsNoCase(method, L"HEAD");
    if (sendRaw) {
        std::string raw = WideToUtf8(method);
        if (!connection.Send(raw.data(), raw.size()))
            return;
        method.clear();
    }
    std::string head = WideToUtf8(BuildHead());
    if (!connection.Send(head.data(), head.size()))
        return;
    if (body && bodyLength > 0 && !connection.Send(body, static_cast<size_t>(bodyLength)))
        return;

    rateActiveLimit = rateLimit;
    sink.Begin(outputPath, headOnly, bodyLimit, writtenBody, bodyStream);
    size_t capacity = kReceiveBufferSize;
    auto* buffer = static_cast<char*>(PoolAlloc(PoolClassFor(capacity)));
    if (Receive(buffer, capacity)) {
        status = sink.head.status;
        responseHeaders.clear();
        responseHeaders.swap(sink.head.headers);
        responseBody = sink.body;
        sink.body = nullptr;
        responseBodyLength = sink.received;
    }
    PoolFree(buffer);
    sink.End();
}

bool HttpRequest::Receive(char*& buffer, size_t& capacity)
{
    size_t fill = 0;
    bool inHead = true;
    uint64_t total = 0;
    pace.Start(minimumRate, PerformanceMilliseconds());
    for (;;) {
        if (!pace.Holds(total, PerformanceMilliseconds()))
            return false;
        int got = connection.Receive(buffer + fill, capacity - fill);
        if (got == 0)
            return false;
        if (got < 0) {
            // What has arrived goes to the file before the wait, so the file grows with the body.
            if (!sink.WriteBatch() || !connection.WaitReadable(receiveTimeoutMs))
                return false;
            continue;
        }
        fill += static_cast<size_t>(got);
        total += static_cast<uint64_t>(got);

        if (inHead) {
            int64_t used = sink.TakeHead(buffer, fill);
            if (used == 0)
                continue;
            if (used < 0)
                return false;
            fill -= static_cast<size_t>(used);
            std::memmove(buffer, buffer + used, fill);
            inHead = false;
            if (!sink.HeadOnly() && !rateActiveLimit && sink.head.expected > static_cast<int64_t>(capacity)) {
                auto* larger = static_cast<char*>(PoolAlloc(PoolClassFor(kBodyReceiveBufferSize)));
                std::memcpy(larger, buffer, fill);
                PoolFree(buffer);
                buffer = larger;
                capacity = kBodyReceiveBufferSize;
            }
        }
        // Bytes after the head of a HEAD response are not a body.
        if (!sink.HeadOnly()) {
            int64_t used = sink.TakeBody(buffer, fill);
            if (used < 0)
                return false;
            fill -= static_cast<size_t>(used);
            std::memmove(buffer, buffer + used, fill);
        }
        if (sink.Complete())
            return true;
    }
}
