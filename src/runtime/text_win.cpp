// The text helpers that call Windows: code-page conversion, formatting, the module path.
#include "runtime/text.h"

#include <windows.h>
#include <cstdio>

std::wstring Utf8ToWide(const char* bytes, ptrdiff_t length)
{
    if (!bytes)
        return std::wstring();
    if (length < 0)
        length = static_cast<ptrdiff_t>(strlen(bytes));
    if (length == 0 || length > INT_MAX)
        return std::wstring();
    int measured = MultiByteToWideChar(CP_UTF8, 0, bytes, static_cast<int>(length), nullptr, 0);
    if (measured < 1)
        return std::wstring();
    std::wstring out(static_cast<size_t>(measured), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, bytes, static_cast<int>(length), &out[0], measured);
    return out;
}

std::string WideToUtf8(const wchar_t* text, ptrdiff_t length)
{
    if (!text)
        return std::string();
    if (length < 0)
        length = static_cast<ptrdiff_t>(wcslen(text));
    if (length == 0 || length > INT_MAX)
        return std::string();
    int measured = WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), nullptr, 0, nullptr, nullptr);
    if (measured < 1)
        return std::string();
    std::string out(static_cast<size_t>(measured), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), &out[0], measured, nullptr, nullptr);
    return out;
}

// The msvcrt routines keep Microsoft semantics whatever stdio mode mingw's headers choose.
std::wstring FormatWV(const wchar_t* format, va_list args)
{
    va_list counting;
    va_copy(counting, args);
    int length = _vscwprintf(format, counting);
    va_end(counting);
    if (length <= 0)
        return std::wstring();
    std::wstring out(static_cast<size_t>(length), L'\0');
    _vsnwprintf(&out[0], out.size(), format, args);
    return out;
}

std::string FormatAV(const char* format, va_list args)
{
    va_list counting;
    va_copy(counting, args);
    int length = _vscprintf(format, counting);
    va_end(counting);
    if (length <= 0)
        return std::string();
    std::string out(static_cast<size_t>(length), '\0');
    _vsnprintf(&out[0], out.size(), format, args);
    return out;
}

std::wstring GetModulePath()
{
    std::wstring buffer(256, L'\0');
    for (;;) {
        DWORD length = GetModuleFileNameW(nullptr, &buffer[0], static_cast<DWORD>(buffer.size()));
        if (length == 0)
            return L".";
        if (length < buffer.size()) {
            buffer.resize(length);
            return buffer;
        }
        buffer.resize(buffer.size() * 2);
    }
}
