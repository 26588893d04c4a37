// HttpRequest's life cycle and its redirect loop.
#include "http/request.h"
#include "runtime/pool.h"

#include <winsock2.h>
#include <cstring>

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(HttpRequest::rateLock), "rateLock storage too small");
static_assert(alignof(CRITICAL_SECTION) <= 8, "rateLock storage misaligned");

HttpRequest::HttpRequest() : socket(INVALID_SOCKET)
{
    rateSlots = static_cast<uint32_t*>(PoolAlloc(PoolClassFor(rateSlotCount * sizeof(uint32_t))));
    std::memset(rateSlots, 0, rateSlotCount * sizeof(uint32_t));
    InitializeCriticalSectionAndSpinCount(RateLock(), 0xFFFFFFFF);
}

HttpRequest::~HttpRequest()
{
    EndBody();
    Reset();
    PoolFree(rateSlots);
    DeleteCriticalSection(RateLock());
}

_RTL_CRITICAL_SECTION* HttpRequest::RateLock()
{
    return reinterpret_cast<CRITICAL_SECTION*>(rateLock);
}

void HttpRequest::DropBody()
{
    if (ownsBody)
        PoolFree(body);
    body = nullptr;
    bodyLength = 0;
    ownsBody = 0;
    contentType.clear();
}

void HttpRequest::Reset()
{
    url.Clear();
    method.clear();
    userAgent.clear();
    headers.clear();
    DropBody();
    outputPath.clear();

    EnterCriticalSection(RateLock());
    std::memset(rateSlots, 0, rateSlotCount * sizeof(uint32_t));
    rateSum = 0;
    rateSlotIndex = 0;
    rateSlotStart = 0;
    rateSlotBytes = 0;
    LeaveCriticalSection(RateLock());

    rateLimit = 0;
    sendRaw = 0;
    noRedirect = 0;
    onComplete = nullptr;
    context = nullptr;
    ClearResults();
}

void HttpRequest::ClearResults()
{
    status = 0;
    responseHeaders.clear();
    PoolFree(responseBody);
    responseBody = nullptr;
    responseBodyLength = 0;
}

void HttpRequest::Execute(const std::wstring& text)
{
    ClearResults();
    if (url.Parse(text))
        Transfer(url);
    if (onComplete)
        onComplete(this);
}

void HttpRequest::Transfer(HttpUrl next)
{
    for (;;) {
        file.Close();
        deflate = 0;
        headOnly = 0;
        chunked = 0;
        std::memset(address, 0, sizeof(address));
        addressLength = 0;
        workBody = nullptr;
        received = 0;
        expected = 0;
        writeBatchLength = 0;
        writeBatchOffset = 0;
        workHeaders.clear();
        workStatus = 0;
        socket = INVALID_SOCKET;
        target = next;

        if (!OpenSocket())
            return;
        Exchange();
        closesocket(static_cast<SOCKET>(socket));
        socket = INVALID_SOCKET;

        // A request that follows a redirect is a GET without body.
        method.clear();
        DropBody();

        if (noRedirect || (status != 301 && status != 302))
            return;
        auto location = responseHeaders.find(L"location");
        if (location == responseHeaders.end() || !next.Parse(location->second) || next.scheme != L"http://")
            return;
        ClearResults();
    }
}
