// JsonLine: members appended to one wide text, turned into UTF-8 once at the end.
#include "json/line.h"
#include "runtime/text.h"

std::wstring EscapeJsonStrict(std::wstring_view text)
{
    static const wchar_t kHex[] = L"0123456789abcdef";
    std::wstring out;
    out.reserve(text.size() + 2);
    out.push_back(L'"');
    for (wchar_t c : text) {
        switch (c) {
        case L'"':
            out += L"\\\"";
            break;
        case L'\\':
            out += L"\\\\";
            break;
        case L'\n':
            out += L"\\n";
            break;
        case L'\r':
            out += L"\\r";
            break;
        case L'\t':
            out += L"\\t";
            break;
        default:
            if (c < 0x20) {
                out += L"\\u00";
                out.push_back(kHex[c >> 4]);
                out.push_back(kHex[c & 15]);
            } else {
                out.push_back(c);
            }
        }
    }
    out.push_back(L'"');
    return out;
}

void JsonLine::Key(const char* key)
{
    if (!members.empty())
        members.push_back(L',');
    members.push_back(L'"');
    for (const char* c = key; *c; ++c)
        members.push_back(static_cast<wchar_t>(*c));
    members += L"\":";
}

JsonLine& JsonLine::String(const char* key, std::wstring_view text)
{
    Key(key);
    members += EscapeJsonStrict(text);
    return *this;
}

JsonLine& JsonLine::Number(const char* key, uint64_t value)
{
    Key(key);
    members += FormatW(L"%llu", static_cast<unsigned long long>(value));
    return *this;
}

JsonLine& JsonLine::Strings(const char* key, const std::vector<std::wstring>& texts)
{
    Key(key);
    members.push_back(L'[');
    for (size_t i = 0; i < texts.size(); ++i) {
        if (i > 0)
            members.push_back(L',');
        members += EscapeJsonStrict(texts[i]);
    }
    members.push_back(L']');
    return *this;
}

JsonLine& JsonLine::Object(const char* key, const JsonLine& object)
{
    Key(key);
    members.push_back(L'{');
    members += object.members;
    members.push_back(L'}');
    return *this;
}

std::string JsonLine::Text() const
{
    return WideToUtf8(L"{" + members + L"}");
}
