// HttpRequest: one clear-text HTTP/1.1 transaction over one non-blocking TCP connection per pass,
// with redirects, the body kept in memory or written to a file, and a sliding-window rate meter.
// Settings are written by the caller before Execute; results are read after it. The working state
// of a pass lives in the layers below: the connection (http/connection.h) and the response with
// its body (http/body_sink.h), over the URL and response-head parsers.
#pragma once
#include "http/body_sink.h"
#include "http/connection.h"
#include "http/minimum_rate.h"
#include "http/rate_meter.h"
#include "http/response_head.h"
#include "http/url.h"
#include "runtime/text.h"

#include <cstddef>
#include <cstdint>
#include <string>

// The rate meter is a private base: its fields read as the request's own, for callers that watch
// a transfer (holding rateLock), while only the body sink of each pass counts into it.
class HttpRequest : private RateMeter {
public:
    HttpRequest() = default;
    ~HttpRequest();
    HttpRequest(const HttpRequest&) = delete;
    HttpRequest& operator=(const HttpRequest&) = delete;

    // Runs one request, following 301/302 redirects to "http://", on the calling thread.
    // Every failure leaves status 0; onComplete runs at the end whatever the outcome.
    void Execute(const std::wstring& text);
    // Clears the settings, the rate meter and the results; the time-outs are kept.
    void Reset();

    // Settings.
    HttpUrl url;                    // the URL last given to Execute
    std::wstring method;            // empty: GET, or POST with a body; cleared after every pass
    std::wstring userAgent;         // sent when not empty
    HttpHeaders headers;            // further request headers, sent in map order
    void* body = nullptr;           // pooled block
    int32_t bodyLength = 0;
    uint8_t ownsBody = 0;           // body goes back to the pool after the pass
    std::wstring contentType;       // sent with a body
    uint32_t connectTimeoutMs = 10000;
    uint32_t receiveTimeoutMs = 1000;  // for each piece of the response
    std::wstring outputPath;        // when set, the body goes to this file instead of memory
    WrittenBody* writtenBody = nullptr;  // sees the body as it is written to outputPath
    BodyStream* bodyStream = nullptr;    // when set, takes a 200 body instead of memory
    uint32_t rateLimit = 0;         // bytes per second as configured, 0 = unlimited
    using RateMeter::rateSlots;
    using RateMeter::rateSum;
    using RateMeter::rateSlotCount;
    using RateMeter::rateSlotIndex;
    using RateMeter::rateSlotMs;
    using RateMeter::rateSlotStart;
    using RateMeter::rateActiveLimit;
    using RateMeter::rateLock;
    using RateMeter::rateSlotBytes;

    uint8_t sendRaw = 0;            // send `method` as raw bytes ahead of a head with an empty method
    uint8_t noRedirect = 0;
    // Bounds for transfers from hosts that are not trusted; each failure leaves status 0.
    uint32_t redirectLimit = 0;     // redirects followed at most, 0 = no limit
    int64_t bodyLimit = -1;         // longest body, refused at the head (also one without a length); -1 = none
    uint32_t minimumRate = 0;       // bytes per second every minute of a pass must average, 0 = none
    void (*onComplete)(HttpRequest* request) = nullptr;
    void* context = nullptr;        // the caller's own pointer for onComplete

    // Results.
    uint32_t status = 0;            // 0 when no complete response was read
    HttpHeaders responseHeaders;
    void* responseBody = nullptr;   // pooled block, when the body was kept in memory
    int64_t responseBodyLength = 0;

    // The last pass, to look at: its URL (differs from url after a redirect), its connection
    // (closed once Execute returns) and its response.
    const HttpUrl& Target() const { return target; }
    const HttpConnection& Connection() const { return connection; }
    const BodySink& Sink() const { return sink; }

private:
    // The head must arrive within the first buffer: a head larger than it never completes. A body
    // longer than that buffer is then received into a larger one, so that a large file takes a
    // fraction of the receive calls; without a rate limit only, which admits the body in small
    // pieces anyway.
    static constexpr size_t kReceiveBufferSize = 32768;
    static constexpr size_t kBodyReceiveBufferSize = size_t(1) << 20;

    void ClearResults();
    // Releases the body (to the pool when owned) and forgets its content type.
    void DropBody();
    // The passes, one per redirect.
    void Transfer(HttpUrl next);
    // Connects, sends the request and reads the response of one pass.
    void Exchange();
    std::wstring BuildHead() const;
    // The receive loop over the pass's pooled buffer of `capacity` bytes, which it may replace by a
    // larger one once the head is parsed: true once the response is complete.
    bool Receive(char*& buffer, size_t& capacity);

    HttpUrl target;
    HttpConnection connection;
    BodySink sink{*this};
    MinimumRate pace;
};
