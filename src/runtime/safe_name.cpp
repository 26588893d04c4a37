// IsSafeRelativeName: component by component, the rules that keep a name from leaving its folder
// or reaching a device.
#include "runtime/safe_name.h"
#include "runtime/text.h"

namespace {

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

bool IsForbidden(wchar_t c)
{
    return c < 0x20 || c == 0x7F || c == L':' || c == L'<' || c == L'>' || c == L'"' || c == L'|' || c == L'?' ||
           c == L'*';
}

bool IsDeviceDigit(wchar_t c) { return (c >= L'0' && c <= L'9') || c == 0xB9 || c == 0xB2 || c == 0xB3; }

// Windows opens a device for its name followed by anything from the first dot on, and ignores
// blanks before that dot.
bool IsDeviceName(const std::wstring& component)
{
    std::wstring stem = component.substr(0, component.find(L'.'));
    while (!stem.empty() && stem.back() == L' ')
        stem.pop_back();
    stem = LowerAscii(stem);
    if (stem == L"con" || stem == L"prn" || stem == L"aux" || stem == L"nul" || stem == L"conin$" ||
        stem == L"conout$")
        return true;
    return stem.size() == 4 && (stem.compare(0, 3, L"com") == 0 || stem.compare(0, 3, L"lpt") == 0) &&
           IsDeviceDigit(stem[3]);
}

bool IsSafeComponent(const std::wstring& component)
{
    if (component.empty() || component.back() == L'.' || component.back() == L' ')
        return false;
    for (wchar_t c : component) {
        if (IsForbidden(c))
            return false;
    }
    return !IsDeviceName(component);
}

}  // namespace

bool IsSafeRelativeName(const std::wstring& name)
{
    size_t start = 0;
    for (;;) {
        size_t end = start;
        while (end < name.size() && !IsSeparator(name[end]))
            ++end;
        if (!IsSafeComponent(name.substr(start, end - start)))
            return false;
        if (end == name.size())
            return true;
        start = end + 1;
    }
}
