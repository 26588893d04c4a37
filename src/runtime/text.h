// Text helpers: UTF-8/UTF-16 conversion, printf-style formatting with Microsoft semantics,
// percent-encoding, and the small splitting, trimming, case and integer helpers that the
// URL and HTTP parsers share. None of them throws; a failed conversion gives an empty string.
#pragma once
#include "runtime/printf_check.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// length -1: up to the first NUL.
std::wstring Utf8ToWide(const char* bytes, ptrdiff_t length = -1);
std::string WideToUtf8(const wchar_t* text, ptrdiff_t length = -1);
inline std::wstring Utf8ToWide(const std::string& bytes) { return Utf8ToWide(bytes.data(), static_cast<ptrdiff_t>(bytes.size())); }
inline std::string WideToUtf8(const std::wstring& text) { return WideToUtf8(text.data(), static_cast<ptrdiff_t>(text.size())); }

// An HTTP body as text: a UTF-8 or UTF-16LE byte-order mark is dropped, the rest read as UTF-8.
std::wstring DecodeTextBody(const void* bytes, size_t length);
// '+' is a blank, "%XX" a byte, anything else its low byte; a broken escape ends the text.
std::wstring UrlDecode(const std::wstring& text);
// Every byte outside A-Z a-z 0-9 * - _ . ~ becomes "%XX".
std::string UrlEncode(const std::string& bytes);
// Two upper-case hexadecimal digits per byte.
std::wstring BytesToHex(const void* bytes, size_t count);

// printf-style formatting: "%s" in a wide format takes a wide string, "%I64u" works.
std::wstring FormatW(VEY_FORMAT_STRING const wchar_t* format, ...);
std::string FormatA(VEY_FORMAT_STRING const char* format, ...) VEY_PRINTF_A(1, 2);
std::wstring FormatWV(const wchar_t* format, va_list args);
std::string FormatAV(const char* format, va_list args) VEY_PRINTF_A(1, 0);

// "1023 B", "1023 KB", "1.5 MB", "1.50 GB" (units of 1024, truncated).
std::wstring FormatByteSize(uint64_t bytes);
// "a.b.c.d" from an address as stored in memory (network order).
std::wstring FormatIPv4(uint32_t address);
// Full path of the running program, or "." when it cannot be read.
std::wstring GetModulePath();
// The text before the last '\\'; the whole text without one.
std::wstring GetDirectoryPart(const std::wstring& path);

// Splits at every character of `separators`; empty pieces are dropped unless keepEmpty,
// and pieces are trimmed when trim is set.
std::vector<std::wstring> SplitText(const std::wstring& text, const std::wstring& separators, bool keepEmpty, bool trim);
// Drops code units 9 to 13 and 32 from both ends.
std::wstring TrimText(const std::wstring& text);
// Lowers A-Z only.
std::wstring LowerAscii(std::wstring text);
wchar_t LowerAscii(wchar_t c);
// Compares ignoring the case of A-Z.
int CompareNoCase(const std::wstring& a, const std::wstring& b);
bool EqualsNoCase(const std::wstring& a, const std::wstring& b);
struct NoCaseLess {
    bool operator()(const std::wstring& a, const std::wstring& b) const { return CompareNoCase(a, b) < 0; }
};
// The value of a hexadecimal digit (0-9, A-F, a-f), or -1.
int HexDigitValue(wchar_t c);
// Reads an optional '-' and digits up to the first non-digit. base 10, or 0 for automatic:
// "0x" hexadecimal, "0b" binary, otherwise decimal. No digits give 0; overflow wraps.
int64_t ParseInteger(const std::wstring& text, int base);
