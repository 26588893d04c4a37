// The JSON writer: turns a value tree into indented text for the log. The output is for
// people, not for parsing back: keys are written as stored, the apostrophe is escaped as \',
// and the layout of arrays differs from that of objects so that logs keep their known form.
// A container writes its whole subtree into one growing string: a string per child, copied
// into its parent, would copy deeply nested text once for every level above it.
#include "json/value.h"
#include "runtime/text.h"

namespace {

void Indent(std::wstring& out, int level)
{
    for (int i = 0; i < level; ++i)
        out += L"  ";
}

void AppendEscaped(std::wstring_view text, std::wstring& out)
{
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
}

void Write(const wJsonValue& value, int depth, const std::wstring& newline, std::wstring& out);

// Scalars stay on the bracket's line, each after a blank; containers start on their own
// indented line. The closing bracket gets its own line only after an object.
void WriteArray(const wJsonArray& array, int depth, const std::wstring& newline, std::wstring& out)
{
    if (array.Count() == 0) {
        out += L"[]";
        return;
    }
    out.push_back(L'[');
    for (uint32_t i = 0; i < array.Count(); ++i) {
        const wJsonValue& element = *array.At(i);
        if (element.type == wJsonType::array || element.type == wJsonType::object) {
            out += newline;
            Indent(out, depth + 1);
        } else {
            out.push_back(L' ');
        }
        Write(element, depth + 1, newline, out);
        if (i + 1 < array.Count()) {
            out.push_back(L',');
        } else if (element.type == wJsonType::object) {
            out += newline;
            Indent(out, depth);
        } else {
            out.push_back(L' ');
        }
    }
    out.push_back(L']');
}

void WriteObject(const wJsonObject& object, int depth, const std::wstring& newline, std::wstring& out)
{
    if (object.Members().empty()) {
        out += L"{}";
        return;
    }
    out.push_back(L'{');
    bool first = true;
    for (const auto& member : object.Members()) {
        if (!first)
            out.push_back(L',');
        first = false;
        out += newline;
        Indent(out, depth + 1);
        out.push_back(L'"');
        out += member.first;
        out += L"\": ";
        Write(*member.second, depth + 1, newline, out);
    }
    out += newline;
    Indent(out, depth);
    out.push_back(L'}');
}

void Write(const wJsonValue& value, int depth, const std::wstring& newline, std::wstring& out)
{
    if (value.type == wJsonType::array)
        WriteArray(static_cast<const wJsonArray&>(value), depth, newline, out);
    else if (value.type == wJsonType::object)
        WriteObject(static_cast<const wJsonObject&>(value), depth, newline, out);
    else if (value.type == wJsonType::string)
        AppendEscaped(static_cast<const wJsonString&>(value).Text(), out);
    else
        out += value.Serialize(depth, newline);
}

std::wstring Written(const wJsonValue& value, int depth, const std::wstring& newline)
{
    std::wstring out;
    Write(value, depth, newline, out);
    return out;
}

}  // namespace

void wJsonValue::SerializeTo(std::wstring& out, int depth, const std::wstring& newline) const
{
    Write(*this, depth, newline, out);
}

std::wstring EscapeJsonString(std::wstring_view text)
{
    std::wstring out;
    out.reserve(text.size() * 2 + 4);
    AppendEscaped(text, out);
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

std::wstring wJsonArray::Serialize(int depth, const std::wstring& newline) const
{
    return Written(*this, depth, newline);
}

std::wstring wJsonObject::Serialize(int depth, const std::wstring& newline) const
{
    return Written(*this, depth, newline);
}
