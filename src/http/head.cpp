// The request head of one pass, line by line, in a single string.
#include "http/request.h"

std::wstring HttpRequest::BuildHead() const
{
    std::wstring head;
    head.reserve(4096);
    head += method;
    head += L' ';
    head += target.pathAndQuery;
    head += L" HTTP/1.1\r\nHost: ";
    head += target.host;
    head += L"\r\nConnection: close\r\n";
    if (!userAgent.empty()) {
        head += L"User-Agent: ";
        head += userAgent;
        head += L"\r\n";
    }
    if (body) {
        head += FormatW(L"Content-Length: %d\r\n", bodyLength);
        head += L"Content-Type: ";
        head += contentType;
        head += L"\r\n";
    }
    for (const auto& header : headers) {
        head += header.first;
        head += L": ";
        head += header.second;
        head += L"\r\n";
    }
    head += L"\r\n";
    return head;
}
