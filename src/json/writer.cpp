// The JSON writer: turns a value tree into indented text for the log. The output is for
// people, not for parsing back: keys are written as stored, the apostrophe is escaped as \',
// and the layout of arrays differs from that of objects so that logs keep their known form.
#include "json/value.h"
#include "runtime/text.h"

namespace {

void Indent(std::wstring& out, int level)
{
    for (int i = 0; i < level; ++i)
        out += L"  ";
}

bool IsContainer(const wJsonValue* value)
{
    return value->type == wJsonType::array || value->type == wJsonType::object;
}

}  // namespace

std::wstring EscapeJsonString(std::wstring_view text)
{
    std::wstring out;
    out.reserve(text.size() * 2 + 4);
    out.push_back(L'"');
    for (wchar_t c : text) {
        switch (c) {
        case L'\b':
            out += L"\\b";
            break;
        case L'\t':
            out += L"\\t";
            break;
        case L'\n':
            out += L"\\n";
            break;
        case L'\f':
            out += L"\\f";
            break;
        case L'\r':
            out += L"\\r";
            break;
        case L'"':
            out += L"\\\"";
            break;
        case L'\'':
            out += L"\\'";
            break;
        case L'\\':
            out += L"\\\\";
            break;
        default:
            out.push_back(c);
        }
    }
    out.push_back(L'"');
    return out;
}

std::wstring wJsonNull::Serialize(int, const std::wstring&) const
{
    return L"null";
}

std::wstring wJsonBoolean::Serialize(int, const std::wstring&) const
{
    return value ? L"true" : L"false";
}

// Up to 128 significant digits: the exact decimal value of the double, trailing zeros dropped.
std::wstring wJsonNumber::Serialize(int, const std::wstring&) const
{
    return FormatW(L"%.128g", value);
}

std::wstring wJsonString::Serialize(int, const std::wstring&) const
{
    return EscapeJsonString(Text());
}

// Scalars stay on the bracket's line, each after a blank; containers start on their own
// indented line. The closing bracket gets its own line only after an object.
std::wstring wJsonArray::Serialize(int depth, const std::wstring& newline) const
{
    if (count == 0)
        return L"[]";
    std::wstring out;
    out.reserve(size_t(count) * 32);
    out.push_back(L'[');
    for (uint32_t i = 0; i < count; ++i) {
        const wJsonValue* element = items[i];
        if (IsContainer(element)) {
            out += newline;
            Indent(out, depth + 1);
        } else {
            out.push_back(L' ');
        }
        out += element->Serialize(depth + 1, newline);
        if (i + 1 < count) {
            out.push_back(L',');
        } else if (element->type == wJsonType::object) {
            out += newline;
            Indent(out, depth);
        } else {
            out.push_back(L' ');
        }
    }
    out.push_back(L']');
    return out;
}

std::wstring wJsonObject::Serialize(int depth, const std::wstring& newline) const
{
    if (members->empty())
        return L"{}";
    std::wstring out;
    out.reserve(members->size() * 32);
    out.push_back(L'{');
    bool first = true;
    for (const auto& member : *members) {
        if (!first)
            out.push_back(L',');
        first = false;
        out += newline;
        Indent(out, depth + 1);
        out.push_back(L'"');
        out += member.first;
        out += L"\": ";
        out += member.second->Serialize(depth + 1, newline);
    }
    out += newline;
    Indent(out, depth);
    out.push_back(L'}');
    return out;
}
