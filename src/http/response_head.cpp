// The response-head parser: status line, header lines, and the rules that refuse a response
// (no valid "Content-Length" print-back, "deflate", "chunked").
#include "http/response_head.h"

#include <string_view>

int64_t ParseResponseHead(const char* bytes, size_t count, ResponseHead& head)
{
    size_t end = std::string_view(bytes, count).find("\r\n\r\n");
    if (end == std::string_view::npos)
        return 0;
    end += 4;

    auto lines = SplitText(Utf8ToWide(bytes, static_cast<ptrdiff_t>(end)), L"\r\n", false, true);
    if (lines.empty())
        return -1;
    auto statusLine = SplitText(lines[0], L" ", false, true);
    if (statusLine.size() < 2 || statusLine[0].size() < 5 || !EqualsNoCase(statusLine[0].substr(0, 5), L"HTTP/"))
        return -1;
    head.status = static_cast<uint32_t>(ParseInteger(statusLine[1], 0));

    for (size_t i = 1; i < lines.size(); ++i) {
        size_t colon = lines[i].find(L':');
        if (colon == std::wstring::npos)
            return -1;
        head.headers[TrimText(lines[i].substr(0, colon))] = TrimText(lines[i].substr(colon + 1));
    }

    auto length = head.headers.find(L"Content-Length");
    if (length != head.headers.end()) {
        head.expected = ParseInteger(length->second, 0);
        if (head.expected < 0 || FormatW(L"%lld", head.expected) != length->second)
            return -1;
    } else {
        head.expected = INT64_MAX;
    }

    auto encoding = head.headers.find(L"Content-Encoding");
    head.deflate = encoding != head.headers.end() && EqualsNoCase(encoding->second, L"deflate");
    if (head.deflate)
        return -1;
    auto transfer = head.headers.find(L"Transfer-Encoding");
    head.chunked = transfer != head.headers.end() && EqualsNoCase(transfer->second, L"chunked");
    if (head.chunked)
        return -1;
    return static_cast<int64_t>(end);
}
