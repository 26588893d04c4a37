// The JSON parser: a recursive-descent reader from NUL-terminated UTF-16 text to a value tree.
// It is lenient where the documents it meets need it (strings in apostrophes, commas optional
// between elements and members, numbers such as ".5" and "5.", a literal directly followed by
// other text) and knows no exponents. A failure is only a null result; everything built for
// the failed value is released on the way out.
#include "json/value.h"
#include "runtime/handles.h"
#include "runtime/text.h"

namespace {

bool IsWhitespace(wchar_t c)
{
    return (c >= 0x09 && c <= 0x0D) || c == 0x20;
}

// Compares unit by unit, so it stops at the text's NUL and never reads beyond it.
bool StartsWith(const wchar_t* text, const wchar_t* literal)
{
    for (; *literal; ++text, ++literal) {
        if (*text != *literal)
            return false;
    }
    return true;
}

}  // namespace

void SkipJsonWhitespace(const wchar_t*& cursor)
{
    while (IsWhitespace(*cursor))
        ++cursor;
}

// State of one document's parse: the nesting depth and one work buffer for the text of every
// string and key, so that reading a string costs neither a scan of the rest of the document
// nor an allocation of its size.
class JsonReader {
public:
    wJsonValue* ParseValue(const wchar_t*& cursor);
    wJsonObject* ParseObject(const wchar_t*& cursor);
    wJsonString* ParseString(const wchar_t*& cursor);

private:
    // One more level of nesting for as long as a container is being read.
    struct Nesting {
        explicit Nesting(int& counter) : depth(counter) { ++depth; }
        ~Nesting() { --depth; }
        bool TooDeep() const { return depth > kJsonMaxDepth; }

        int& depth;
    };

    wJsonArray* ParseArray(const wchar_t*& cursor);
    static wJsonNumber* ParseNumber(const wchar_t*& cursor);
    // Reads a quoted string into `text`.
    bool ReadText(const wchar_t*& cursor);

    std::wstring text;
    int depth = 0;
};

wJsonValue* JsonReader::ParseValue(const wchar_t*& cursor)
{
    SkipJsonWhitespace(cursor);
    if (StartsWith(cursor, L"true")) {
        cursor += 4;
        return wJsonBoolean::Create(true);
    }
    if (StartsWith(cursor, L"false")) {
        cursor += 5;
        return wJsonBoolean::Create(false);
    }
    if (StartsWith(cursor, L"null")) {
        cursor += 4;
        return wJsonNull::Create();
    }
    wchar_t first = *cursor;
    if (first == L'-' || first == L'.' || (first >= L'0' && first <= L'9'))
        return ParseNumber(cursor);
    if (first == L'{')
        return ParseObject(cursor);
    if (first == L'[')
        return ParseArray(cursor);
    if (first == L'"' || first == L'\'')
        return ParseString(cursor);
    return nullptr;
}

wJsonNumber* JsonReader::ParseNumber(const wchar_t*& cursor)
{
    SkipJsonWhitespace(cursor);
    double mantissa = 0.0;
    double divisor = 1.0;
    double sign = 1.0;
    bool dotSeen = false;
    bool noDigit = true;
    if (*cursor == L'-') {
        sign = -1.0;
        ++cursor;
    }
    for (;; ++cursor) {
        wchar_t c = *cursor;
        if (c >= L'0' && c <= L'9') {
            mantissa = mantissa * 10.0 + (c - L'0');
            noDigit = false;
            if (dotSeen)
                divisor *= 10.0;
        } else if (c == L'.' && !dotSeen) {
            dotSeen = true;
        } else {
            break;
        }
    }
    if (noDigit)
        return nullptr;
    return wJsonNumber::Create(mantissa / divisor * sign);
}

wJsonArray* JsonReader::ParseArray(const wchar_t*& cursor)
{
    Nesting nesting(depth);
    if (nesting.TooDeep())
        return nullptr;
    wJsonRoot<wJsonArray> array(wJsonArray::Create());
    SkipJsonWhitespace(cursor);
    if (*cursor != L'[')
        return nullptr;
    ++cursor;
    SkipJsonWhitespace(cursor);
    while (*cursor != L'\0') {
        if (*cursor == L',') {
            if (array.Get()->Count() == 0)
                return nullptr;
            ++cursor;
        } else if (*cursor == L']') {
            ++cursor;
            return array.Release();
        }
        wJsonValue* element = ParseValue(cursor);
        if (!element)
            return nullptr;
        array.Get()->Append(element);
        SkipJsonWhitespace(cursor);
    }
    return nullptr;
}

wJsonObject* JsonReader::ParseObject(const wchar_t*& cursor)
{
    Nesting nesting(depth);
    if (nesting.TooDeep())
        return nullptr;
    wJsonRoot<wJsonObject> object(wJsonObject::Create());
    SkipJsonWhitespace(cursor);
    if (*cursor != L'{')
        return nullptr;
    ++cursor;
    bool firstMember = true;
    SkipJsonWhitespace(cursor);
    if (*cursor == L'\0')
        return nullptr;
    for (;;) {
        if (*cursor == L',') {
            if (firstMember)
                return nullptr;
            ++cursor;
        } else if (*cursor == L'}') {
            ++cursor;
            object.Get()->Finish();
            return object.Release();
        }
        firstMember = false;
        if (!ReadText(cursor))
            return nullptr;
        std::wstring key(text);
        SkipJsonWhitespace(cursor);
        if (*cursor != L':')
            return nullptr;
        ++cursor;
        wJsonValue* value = ParseValue(cursor);
        if (!value)
            return nullptr;
        object.Get()->Insert(std::move(key), value);
        SkipJsonWhitespace(cursor);
        if (*cursor == L'\0')
            return nullptr;
    }
}

wJsonString* JsonReader::ParseString(const wchar_t*& cursor)
{
    if (!ReadText(cursor))
        return nullptr;
    return wJsonString::Create(text);
}

bool JsonReader::ReadText(const wchar_t*& cursor)
{
    SkipJsonWhitespace(cursor);
    wchar_t quote = *cursor;
    if (quote != L'"' && quote != L'\'')
        return false;
    ++cursor;
    text.clear();
    for (;;) {
        const wchar_t* run = cursor;
        while (*cursor != quote && *cursor != L'\\' && *cursor != L'\0')
            ++cursor;
        text.append(run, static_cast<size_t>(cursor - run));
        if (*cursor == L'\0')
            return false;
        if (*cursor == quote) {
            ++cursor;
            return true;
        }
        ++cursor;
        switch (*cursor) {
        case L'"':
        case L'\'':
        case L'/':
        case L'\\':
            text.push_back(*cursor);
            break;
        case L'b':
            text.push_back(L'\b');
            break;
        case L'f':
            text.push_back(L'\f');
            break;
        case L'n':
            text.push_back(L'\n');
            break;
        case L'r':
            text.push_back(L'\r');
            break;
        case L't':
            text.push_back(L'\t');
            break;
        case L'u': {
            unsigned unit = 0;
            for (int i = 1; i <= 4; ++i) {
                int digit = HexDigitValue(cursor[i]);
                if (digit < 0)
                    return false;
                unit = unit * 16 + static_cast<unsigned>(digit);
            }
            text.push_back(static_cast<wchar_t>(unit));
            cursor += 4;
            break;
        }
        default:
            return false;
        }
        ++cursor;
    }
}

wJsonValue* wJsonValue::Parse(const wchar_t*& cursor)
{
    JsonReader parser;
    return parser.ParseValue(cursor);
}

wJsonObject* wJsonObject::Parse(const wchar_t*& cursor)
{
    JsonReader parser;
    return parser.ParseObject(cursor);
}

wJsonString* wJsonString::Parse(const wchar_t*& cursor)
{
    JsonReader parser;
    return parser.ParseString(cursor);
}
