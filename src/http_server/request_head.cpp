// ParseRequestHead: the head is read line by line as far as it has arrived; each complete line
// is judged at once, so a broken request is refused without waiting for the rest of it.
#include "http_server/request_head.h"

#include <string_view>

namespace {

bool IsTokenChar(unsigned char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           std::string_view("!#$%&'*+-.^_`|~").find(static_cast<char>(c)) != std::string_view::npos;
}

bool IsToken(std::string_view text)
{
    if (text.empty())
        return false;
    for (unsigned char c : text) {
        if (!IsTokenChar(c))
            return false;
    }
    return true;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

int64_t Refuse(RequestHead& head, uint32_t status)
{
    head.refusal = status;
    return -1;
}

// The position of the first CR or LF in [from, limit), or limit.
size_t LineEnd(const char* bytes, size_t from, size_t limit)
{
    for (size_t i = from; i < limit; ++i) {
        if (bytes[i] == '\r' || bytes[i] == '\n')
            return i;
    }
    return limit;
}

// 0 when the request line is one to serve, else the status that refuses it.
uint32_t JudgeRequestLine(std::string_view line, RequestHead& head)
{
    size_t first = line.find(' ');
    size_t second = first == std::string_view::npos ? first : line.find(' ', first + 1);
    if (second == std::string_view::npos || line.find(' ', second + 1) != std::string_view::npos)
        return 400;
    std::string_view method = line.substr(0, first);
    std::string_view target = line.substr(first + 1, second - first - 1);
    std::string_view version = line.substr(second + 1);
    if (!IsToken(method) || target.empty())
        return 400;
    for (unsigned char c : target) {
        if (c < 0x21 || c > 0x7E)
            return 400;
    }
    if (version.size() != 8 || version.substr(0, 5) != "HTTP/" || !IsDigit(version[5]) || version[6] != '.' ||
        !IsDigit(version[7]))
        return 400;
    if (version[5] != '1')
        return 505;
    if (method != "GET" && method != "HEAD")
        return 405;
    if (target[0] != '/')
        return 400;
    for (size_t i = 0; i < target.size(); ++i) {
        if (target[i] == '%' && (target.size() - i < 3 || HexDigitValue(static_cast<unsigned char>(target[i + 1])) < 0 ||
                                 HexDigitValue(static_cast<unsigned char>(target[i + 2])) < 0))
            return 400;
    }
    head.method = std::string(method);
    head.target = std::string(target);
    head.minorVersion = static_cast<uint32_t>(version[7] - '0');
    return 0;
}

// False for a header line that cannot be read; otherwise the header is stored.
bool TakeHeaderLine(std::string_view line, RequestHead& head)
{
    size_t colon = line.find(':');
    if (colon == std::string_view::npos || !IsToken(line.substr(0, colon)))
        return false;
    std::string_view value = line.substr(colon + 1);
    for (unsigned char c : value) {
        if ((c < 0x20 && c != '\t') || c == 0x7F)
            return false;
    }
    std::wstring name = Utf8ToWide(line.data(), static_cast<ptrdiff_t>(colon));
    if (EqualsNoCase(name, L"Host") && head.headers.count(L"Host"))
        return false;
    head.headers[name] = TrimText(Utf8ToWide(value.data(), static_cast<ptrdiff_t>(value.size())));
    return true;
}

}  // namespace

int64_t ParseRequestHead(const char* bytes, size_t count, RequestHead& head)
{
    head = RequestHead();
    size_t end = LineEnd(bytes, 0, count < kMaxRequestLine + 1 ? count : kMaxRequestLine + 1);
    if (end > kMaxRequestLine)
        return Refuse(head, 414);
    if (end == count)
        return 0;
    if (bytes[end] == '\n' || (end + 1 < count && bytes[end + 1] != '\n'))
        return Refuse(head, 400);
    if (end + 1 == count)
        return 0;
    if (uint32_t status = JudgeRequestLine(std::string_view(bytes, end), head))
        return Refuse(head, status);

    // A header line's CRLF must end within the head's limit, so its CR lies before the last byte.
    size_t limit = count < kMaxRequestHead - 1 ? count : kMaxRequestHead - 1;
    for (size_t start = end + 2;;) {
        if (start > limit)
            return Refuse(head, 431);
        end = LineEnd(bytes, start, limit);
        if (end == limit)
            return count < kMaxRequestHead - 1 ? 0 : Refuse(head, 431);
        if (bytes[end] == '\n' || (end + 1 < count && bytes[end + 1] != '\n'))
            return Refuse(head, 400);
        if (end + 1 == count)
            return 0;
        if (end > start && !TakeHeaderLine(std::string_view(bytes + start, end - start), head))
            return Refuse(head, 400);
        if (end == start)
            break;
        start = end + 2;
    }
    if (head.minorVersion >= 1 && head.headers.count(L"Host") == 0)
        return Refuse(head, 400);
    return static_cast<int64_t>(end + 2);
}
