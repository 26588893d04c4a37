// The text conversions and formatting for the native build. Wide strings hold UTF-16 code units
// here too (one per wchar_t, surrogates as two), as the parsers see them on Windows; invalid
// UTF-8 becomes U+FFFD. Formatting uses the C library, enough for the numeric formats the
// parsers use.
#include "runtime/text.h"

#include <cstdio>
#include <cstring>
#include <cwchar>

namespace {

// Decodes one sequence at `p`; returns the code point or 0xFFFD and advances past what it used.
uint32_t DecodeOne(const unsigned char*& p, const unsigned char* end)
{
    unsigned char lead = *p++;
    if (lead < 0x80)
        return lead;
    int extra = lead >= 0xF0 && lead <= 0xF4 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 && lead < 0xE0 ? 1 : -1;
    if (extra < 0)
        return 0xFFFD;
    uint32_t value = lead & (0x3F >> extra);
    for (int i = 0; i < extra; ++i) {
        if (p == end || (*p & 0xC0) != 0x80)
            return 0xFFFD;
        value = (value << 6) | (*p++ & 0x3F);
    }
    bool overlong = (extra == 2 && value < 0x800) || (extra == 3 && value < 0x10000);
    if (overlong || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return 0xFFFD;
    return value;
}

}  // namespace

std::wstring Utf8ToWide(const char* bytes, ptrdiff_t length)
{
    if (!bytes)
        return std::wstring();
    if (length < 0)
        length = static_cast<ptrdiff_t>(std::strlen(bytes));
    std::wstring out;
    auto* p = reinterpret_cast<const unsigned char*>(bytes);
    const unsigned char* end = p + length;
    while (p < end) {
        uint32_t value = DecodeOne(p, end);
        if (value >= 0x10000) {
            value -= 0x10000;
            out.push_back(static_cast<wchar_t>(0xD800 + (value >> 10)));
            out.push_back(static_cast<wchar_t>(0xDC00 + (value & 0x3FF)));
        } else {
            out.push_back(static_cast<wchar_t>(value));
        }
    }
    return out;
}

std::string WideToUtf8(const wchar_t* text, ptrdiff_t length)
{
    if (!text)
        return std::string();
    if (length < 0)
        length = static_cast<ptrdiff_t>(std::wcslen(text));
    std::string out;
    for (ptrdiff_t i = 0; i < length; ++i) {
        uint32_t value = static_cast<uint32_t>(text[i]) & 0xFFFF;
        if (value >= 0xD800 && value < 0xDC00 && i + 1 < length && (text[i + 1] & 0xFC00) == 0xDC00) {
            value = 0x10000 + ((value - 0xD800) << 10) + ((static_cast<uint32_t>(text[++i]) & 0xFFFF) - 0xDC00);
        } else if (value >= 0xD800 && value <= 0xDFFF) {
            value = 0xFFFD;
        }
        if (value < 0x80) {
            out.push_back(static_cast<char>(value));
        } else if (value < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (value >> 6)));
            out.push_back(static_cast<char>(0x80 | (value & 0x3F)));
        } else if (value < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (value >> 12)));
            out.push_back(static_cast<char>(0x80 | ((value >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (value & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (value >> 18)));
            out.push_back(static_cast<char>(0x80 | ((value >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((value >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (value & 0x3F)));
        }
    }
    return out;
}

std::wstring FormatWV(const wchar_t* format, va_list args)
{
    std::wstring out(256, L'\0');
    for (;;) {
        va_list attempt;
        va_copy(attempt, args);
        int length = std::vswprintf(&out[0], out.size(), format, attempt);
        va_end(attempt);
        if (length >= 0) {
            out.resize(static_cast<size_t>(length));
            return out;
        }
        if (out.size() > (1u << 20))
            return std::wstring();
        out.resize(out.size() * 2);
    }
}

std::string FormatAV(const char* format, va_list args)
{
    va_list counting;
    va_copy(counting, args);
    int length = std::vsnprintf(nullptr, 0, format, counting);
    va_end(counting);
    if (length <= 0)
        return std::string();
    std::string out(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(&out[0], out.size(), format, args);
    out.resize(static_cast<size_t>(length));
    return out;
}
