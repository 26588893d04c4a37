// HttpUrl::Parse: scheme, authority, request target and query parameters, positions in UTF-16 units.
#include "http/url.h"

void HttpUrl::Clear()
{
    url.clear();
    scheme.clear();
    host.clear();
    port = 0;
    pathAndQuery.clear();
    path.clear();
    query.clear();
    queryParams.clear();
}

// `text` is a copy, so that a caller may pass this record's own `url`.
bool HttpUrl::Parse(std::wstring text)
{
    Clear();
    url = text;

    size_t start = 0;
    size_t marker = text.find(L"://");
    if (marker != std::wstring::npos) {
        scheme = LowerAscii(text.substr(0, marker + 3));
        start = marker + 3;
    }
    size_t end = text.find(L'/', start);
    if (end == std::wstring::npos)
        end = text.size();
    if (end != 0)
        host = LowerAscii(text.substr(start, end - start));
    if (host.empty())
        return false;

    size_t colon = host.find(L':');
    if (colon != std::wstring::npos) {
        int64_t value = ParseInteger(host.substr(colon + 1), 10);
        if (value < 0 || value > 65535)
            return false;
        port = static_cast<uint32_t>(value);
        host.resize(colon);
    } else if (scheme == L"ftp://") {
        port = 21;
    } else if (scheme == L"http://") {
        port = 80;
    } else if (scheme == L"https://") {
        port = 443;
    }

    pathAndQuery = end < text.size() ? text.substr(end) : std::wstring(L"/");
    size_t question = pathAndQuery.find(L'?');
    if (question != std::wstring::npos) {
        path = pathAndQuery.substr(0, question);
        query = pathAndQuery.substr(question + 1);
    } else {
        path = pathAndQuery;
    }
    if (query.empty())
        return true;

    for (const auto& piece : SplitText(query, L"&", false, false)) {
        auto pair = SplitText(piece, L"=", true, true);
        if (pair.size() != 2 || pair[0].empty())
            return false;
        queryParams[pair[0]] = pair[1];
    }
    return true;
}
