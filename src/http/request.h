// HttpRequest: one clear-text HTTP/1.1 transaction over one non-blocking TCP connection per pass,
// with redirects, the body kept in memory or written to a file, and a sliding-window rate meter.
// Settings are written by the caller before Execute; results are read after it.
#pragma once
#include "http/response_head.h"
#include "http/url.h"
#include "runtime/file.h"
#include "runtime/text.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

struct _RTL_CRITICAL_SECTION;

class HttpRequest {
public:
    HttpRequest();
    ~HttpRequest();
    HttpRequest(const HttpRequest&) = delete;
    HttpRequest& operator=(const HttpRequest&) = delete;

    // Runs one request, following 301/302 redirects to "http://", on the calling thread.
    // Every failure leaves status 0; onComplete runs at the end whatever the outcome.
    void Execute(const std::wstring& text);
    // Clears the settings, the rate meter and the results; the time-outs are kept.
    void Reset();

    // Reads a response head from the first `count` received bytes: 0 when it is not complete yet,
    // -1 when the response is refused, otherwise the number of bytes the head took.
    int64_t ParseHead(const char* bytes, size_t count);
    // Delivers body bytes to memory or to outputPath at the rate allowed: the number taken, or -1
    // when the file cannot be opened or written. Bytes for the file are gathered into batches of
    // kWriteBatchSize that are written at their offsets when full, before every wait, and before
    // the body counts as complete.
    int64_t TakeBody(const char* bytes, size_t count);
    // Writes the body bytes still gathered to the file and releases the batch; a transfer that
    // ends early thus leaves in the file every byte it received.
    void EndBody();

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

    // Rate meter: bytes per 100 ms slot over the last 30 slots, guarded by rateLock.
    uint32_t* rateSlots = nullptr;
    uint32_t rateSum = 0;           // the sum of rateSlots
    uint32_t rateSlotCount = 30;
    uint32_t rateSlotIndex = 0;
    uint32_t rateSlotMs = 100;
    uint32_t rateSlotStart = 0;     // milliseconds
    uint32_t rateActiveLimit = 0;   // bytes per second for the pass in progress, 0 = unlimited
    alignas(8) unsigned char rateLock[40];  // a CRITICAL_SECTION, opaque so no windows.h is needed here
    uint32_t rateSlotBytes = 0;     // bytes of the current slot
    uint32_t rateLimit = 0;         // bytes per second as configured, 0 = unlimited

    uint8_t sendRaw = 0;            // send `method` as raw bytes ahead of a head with an empty method
    uint8_t noRedirect = 0;
    void (*onComplete)(HttpRequest* request) = nullptr;
    void* context = nullptr;        // the caller's own pointer for onComplete

    // Results.
    uint32_t status = 0;            // 0 when no complete response was read
    HttpHeaders responseHeaders;
    void* responseBody = nullptr;   // pooled block, when the body was kept in memory
    int64_t responseBodyLength = 0;

    // Working state of the pass in progress.
    wFile file;
    uint8_t deflate = 0;
    uint8_t headOnly = 0;
    uint8_t chunked = 0;
    unsigned char address[128] = {};
    int32_t addressLength = 0;
    void* workBody = nullptr;
    int64_t received = 0;
    int64_t expected = 0;
    HttpHeaders workHeaders;
    uint32_t workStatus = 0;
    char* writeBatch = nullptr;     // pooled block of kWriteBatchSize: body bytes not yet written
    uint32_t writeBatchLength = 0;
    uint64_t writeBatchOffset = 0;  // file offset of the batch's first byte
    uintptr_t socket;
    HttpUrl target;                 // the URL of this pass; differs from url after a redirect

private:
    static constexpr size_t kReceiveBufferSize = 32768;
    // One write through the completion port costs far more than copying a piece, so the pieces
    // of a body go to the file in batches of this size.
    static constexpr size_t kWriteBatchSize = size_t(1) << 20;

    void ClearResults();
    // Releases the body (to the pool when owned) and forgets its content type.
    void DropBody();
    void Transfer(HttpUrl next);
    bool OpenSocket();
    void Exchange();
    std::wstring BuildHead() const;
    void Receive(char* buffer);
    // Adds body bytes to the batch, writing each batch that fills up; false when a write fails.
    bool GatherForFile(const char* bytes, size_t count);
    // Writes the gathered bytes at their offset; false when the write fails or is short.
    bool WriteBatch();
    _RTL_CRITICAL_SECTION* RateLock();
};
