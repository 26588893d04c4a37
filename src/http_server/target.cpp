// NameFromTarget: splits the path at '/', percent-decodes each component, and lets the one name
// check judge the result.
#include "http_server/target.h"
#include "runtime/safe_name.h"
#include "runtime/text.h"

namespace {

// The bytes of one percent-encoded component; false for a broken escape.
bool DecodeComponent(const std::string& text, std::string& bytes)
{
    bytes.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            bytes += text[i];
            continue;
        }
        if (text.size() - i < 3)
            return false;
        int high = HexDigitValue(static_cast<unsigned char>(text[i + 1]));
        int low = HexDigitValue(static_cast<unsigned char>(text[i + 2]));
        if (high < 0 || low < 0)
            return false;
        bytes += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

}  // namespace

std::wstring NameFromTarget(const std::string& target)
{
    std::string path = target.substr(0, target.find('?'));
    if (path.empty() || path[0] != '/' || path.find('#') != std::string::npos)
        return std::wstring();
    std::wstring name;
    std::string bytes;
    size_t start = 1;
    for (;;) {
        size_t end = path.find('/', start);
        if (end == std::string::npos)
            end = path.size();
        if (!DecodeComponent(path.substr(start, end - start), bytes))
            return std::wstring();
        std::wstring component = Utf8ToWide(bytes);
        // Invalid UTF-8 does not survive the round trip; a decoded separator would split the name.
        if (WideToUtf8(component) != bytes || component.find_first_of(L"\\/") != std::wstring::npos)
            return std::wstring();
        if (start > 1)
            name += L'\\';
        name += component;
        if (end == path.size())
            break;
        start = end + 1;
    }
    return IsSafeRelativeName(name) ? name : std::wstring();
}
