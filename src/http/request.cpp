// HttpRequest's life cycle and its redirect loop.
#include "http/request.h"
#include "runtime/pool.h"

HttpRequest::~HttpRequest()
{
    Reset();
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
    writtenBody = nullptr;
    bodyStream = nullptr;
    RateMeter::Clear();
    rateLimit = 0;
    sendRaw = 0;
    noRedirect = 0;
    redirectLimit = 0;
    bodyLimit = -1;
    minimumRate = 0;
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
    for (uint32_t redirects = 0;; ++redirects) {
        target = next;
        if (!connection.Open(target.host, target.port))
            return;
        Exchange();
        connection.Close();

        // A request that follows a redirect is a GET without body.
        method.clear();
        DropBody();

        if (noRedirect || (status != 301 && status != 302))
            return;
        auto location = responseHeaders.find(L"location");
        if (location == responseHeaders.end() || !next.Parse(location->second) || next.scheme != L"http://")
            return;
        ClearResults();
        if (redirectLimit != 0 && redirects == redirectLimit)
            return;
    }
}
