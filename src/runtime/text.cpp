// The platform-independent text helpers; conversions and formatting live in text_win.cpp.
#include "runtime/text.h"

namespace {

const char kHexDigits[] = "0123456789ABCDEF";

bool IsTrimmed(wchar_t c) { return (c >= 9 && c <= 13) || c == 32; }

}  // namespace

int HexDigitValue(wchar_t c)
{
    if (c >= L'0' && c <= L'9')
        return c - L'0';
    if (c >= L'A' && c <= L'F')
        return c - L'A' + 10;
    if (c >= L'a' && c <= L'f')
        return c - L'a' + 10;
    return -1;
}

std::wstring DecodeTextBody(const void* bytes, size_t length)
{
    auto* p = static_cast<const unsigned char*>(bytes);
    if (length >= 3 && p[0] == 0xEF && p[1] == 0xBB && p[2] == 0xBF) {
        p += 3;
        length -= 3;
    } else if (length >= 2 && p[0] == 0xFF && p[1] == 0xFE) {
        p += 2;
        length -= 2;
    }
    if (length == 0)
        return std::wstring();
    return Utf8ToWide(reinterpret_cast<const char*>(p), static_cast<ptrdiff_t>(length));
}

std::wstring UrlDecode(const std::wstring& text)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        wchar_t c = text[i];
        if (c == L'+') {
            bytes.push_back(' ');
        } else if (c == L'%') {
            if (text.size() - i < 3)
                break;
            int high = HexDigitValue(text[i + 1]);
            int low = HexDigitValue(text[i + 2]);
            if (high < 0 || low < 0)
                break;
            bytes.push_back(static_cast<char>(high * 16 + low));
            i += 2;
        } else {
            bytes.push_back(static_cast<char>(c & 0xFF));
        }
    }
    return Utf8ToWide(bytes);
}

std::string UrlEncode(const std::string& bytes)
{
    std::string out;
    out.reserve(bytes.size() * 3);
    for (unsigned char c : bytes) {
        bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '*' ||
                     c == '-' || c == '_' || c == '.' || c == '~';
        if (plain) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('%');
            out.push_back(kHexDigits[c >> 4]);
            out.push_back(kHexDigits[c & 15]);
        }
    }
    return out;
}

std::wstring BytesToHex(const void* bytes, size_t count)
{
    auto* p = static_cast<const unsigned char*>(bytes);
    std::wstring out(count * 2, L'0');
    for (size_t i = 0; i < count; ++i) {
        out[i * 2] = static_cast<wchar_t>(kHexDigits[p[i] >> 4]);
        out[i * 2 + 1] = static_cast<wchar_t>(kHexDigits[p[i] & 15]);
    }
    return out;
}

std::wstring FormatW(const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    std::wstring out = FormatWV(format, args);
    va_end(args);
    return out;
}

std::string FormatA(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string out = FormatAV(format, args);
    va_end(args);
    return out;
}

std::wstring FormatByteSize(uint64_t n)
{
    if (n < 1024)
        return FormatW(L"%I64u B", n);
    if (n < 1048576)
        return FormatW(L"%I64u KB", n / 1024);
    if (n < 1073741824) {
        uint64_t t = n * 10 / 1048576;
        return FormatW(L"%I64u.%I64u MB", t / 10, t % 10);
    }
    uint64_t t = n * 100 / 1073741824;
    return FormatW(L"%I64u.%02I64u GB", t / 100, t % 100);
}

std::wstring FormatIPv4(uint32_t address)
{
    auto* b = reinterpret_cast<const unsigned char*>(&address);
    return FormatW(L"%d.%d.%d.%d", b[0], b[1], b[2], b[3]);
}

std::wstring GetDirectoryPart(const std::wstring& path)
{
    size_t slash = path.rfind(L'\\');
    return slash == std::wstring::npos ? path : path.substr(0, slash);
}

std::vector<std::wstring> SplitText(const std::wstring& text, const std::wstring& separators, bool keepEmpty, bool trim)
{
    std::vector<std::wstring> pieces;
    size_t start = 0;
    for (;;) {
        size_t end = text.find_first_of(separators, start);
        std::wstring piece = text.substr(start, end == std::wstring::npos ? std::wstring::npos : end - start);
        if (trim)
            piece = TrimText(piece);
        if (keepEmpty || !piece.empty())
            pieces.push_back(std::move(piece));
        if (end == std::wstring::npos)
            break;
        start = end + 1;
    }
    return pieces;
}

std::wstring TrimText(const std::wstring& text)
{
    size_t begin = 0, end = text.size();
    while (begin < end && IsTrimmed(text[begin]))
        ++begin;
    while (end > begin && IsTrimmed(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}

wchar_t LowerAscii(wchar_t c)
{
    return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + 32) : c;
}

std::wstring LowerAscii(std::wstring text)
{
    for (auto& c : text)
        c = LowerAscii(c);
    return text;
}

int CompareNoCase(const std::wstring& a, const std::wstring& b)
{
    size_t n = a.size() < b.size() ? a.size() : b.size();
    for (size_t i = 0; i < n; ++i) {
        unsigned x = static_cast<uint16_t>(LowerAscii(a[i]));
        unsigned y = static_cast<uint16_t>(LowerAscii(b[i]));
        if (x != y)
            return x < y ? -1 : 1;
    }
    if (a.size() == b.size())
        return 0;
    return a.size() < b.size() ? -1 : 1;
}

bool EqualsNoCase(const std::wstring& a, const std::wstring& b)
{
    return a.size() == b.size() && CompareNoCase(a, b) == 0;
}

int64_t ParseInteger(const std::wstring& text, int base)
{
    size_t i = 0;
    bool negative = false;
    if (i < text.size() && text[i] == L'-') {
        negative = true;
        ++i;
    }
    if (base == 0) {
        base = 10;
        if (i + 1 < text.size() && text[i] == L'0') {
            wchar_t marker = LowerAscii(text[i + 1]);
            if (marker == L'x') {
                base = 16;
                i += 2;
            } else if (marker == L'b') {
                base = 2;
                i += 2;
            }
        }
    }
    uint64_t value = 0;
    for (; i < text.size(); ++i) {
        int digit = HexDigitValue(text[i]);
        if (digit < 0 || digit >= base)
            break;
        value = value * static_cast<unsigned>(base) + static_cast<unsigned>(digit);
    }
    return static_cast<int64_t>(negative ? 0 - value : value);
}
