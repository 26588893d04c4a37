// JSON values held as a tree of pooled objects: the value classes, their lookups and
// read-only walking, and the entry points of the parser (parser.cpp) and writer (writer.cpp).
// A tree is built only by the parser's JsonReader; whoever receives the root owns it, held in a
// wJsonRoot, which frees the whole tree.
#pragma once
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>
#include <string>
#include <string_view>

enum class wJsonType : int32_t {
    array = 1,
    boolean = 2,
    null = 3,
    number = 4,
    object = 5,
    string = 6,
};

// Deepest nesting of arrays and objects that the parser accepts; a deeper document fails.
// Parsing, writing and releasing recurse once per level. Measured with mingw-w64 a level
// costs at most about 230 bytes of stack in each of them, optimised or not, so 512 levels
// take under 120 KiB: about a tenth of the 1 MiB that Windows gives the main thread, and
// safe on a thread with 256 KiB. Both inputs (the command line and a server's manifest)
// come from outside, so the bound turns a hostile document into a parse failure instead of
// a stack overflow; real documents nest a few levels deep.
constexpr int kJsonMaxDepth = 512;

template <typename Kind>
class Owned;  // runtime/handles.h

// The root of a parsed tree as Owned<> holds it: releasing the root frees the whole tree.
template <typename Root>
struct wJsonRootKind {
    using Value = Root*;
    static constexpr Value kNone = nullptr;
    static bool IsValid(Value root) { return root != nullptr; }
    static void Close(Value root) { root->Release(); }
};

// A parsed tree held by its owner, who includes runtime/handles.h to use it.
template <typename Root>
using wJsonRoot = Owned<wJsonRootKind<Root>>;

class wJsonValue {
public:
    // Destroys the value with everything it owns and returns its block to the pool.
    virtual void Release() = 0;
    // The value as indented text; depth is the nesting level (0 for the first value written).
    virtual std::wstring Serialize(int depth, const std::wstring& newline) const = 0;
    // Appends the text that Serialize returns to out, without a string of its own.
    void SerializeTo(std::wstring& out, int depth, const std::wstring& newline) const;

    // Parses any value at the cursor and leaves the cursor after it; null on failure.
    static wJsonValue* Parse(const wchar_t*& cursor);

    const wJsonType type;

protected:
    explicit wJsonValue(wJsonType kind) : type(kind) {}
    // Not virtual: values are destroyed only through Release, which knows the class.
    ~wJsonValue() = default;
};

// Orders keys by UTF-16 code units compared as unsigned 16-bit numbers; a prefix sorts first.
struct wJsonKeyLess {
    bool operator()(const std::wstring& a, const std::wstring& b) const
    {
        size_t common = a.size() < b.size() ? a.size() : b.size();
        for (size_t i = 0; i < common; ++i) {
            auto x = static_cast<uint16_t>(a[i]);
            auto y = static_cast<uint16_t>(b[i]);
            if (x != y)
                return x < y;
        }
        return a.size() < b.size();
    }
};

// The members of an object in key order, as one flat sorted list: a tree of nodes per object
// would cost several heap blocks per member, and trees are built once and then only read.
class wJsonMembers {
public:
    using Member = std::pair<std::wstring, wJsonValue*>;
    using const_iterator = std::vector<Member>::const_iterator;

    const_iterator begin() const { return list.begin(); }
    const_iterator end() const { return list.end(); }
    bool empty() const { return list.empty(); }
    size_t size() const { return list.size(); }
    const_iterator find(const std::wstring& key) const;
    size_t count(const std::wstring& key) const { return find(key) == end() ? 0 : 1; }
    // The value of a key that is present; std::out_of_range otherwise.
    wJsonValue* at(const std::wstring& key) const;

private:
    friend class wJsonObject;
    std::vector<Member> list;
};

class wJsonNull final : public wJsonValue {
public:
    void Release() override;
    std::wstring Serialize(int depth, const std::wstring& newline) const override;

private:
    friend class JsonReader;
    wJsonNull() : wJsonValue(wJsonType::null) {}
    static wJsonNull* Create();
};

class wJsonBoolean final : public wJsonValue {
public:
    void Release() override;
    std::wstring Serialize(int depth, const std::wstring& newline) const override;
    bool Value() const { return value != 0; }

private:
    friend class JsonReader;
    explicit wJsonBoolean(bool v) : wJsonValue(wJsonType::boolean), value(v ? 1 : 0) {}
    static wJsonBoolean* Create(bool v);

    uint8_t value;
};

class wJsonNumber final : public wJsonValue {
public:
    void Release() override;
    std::wstring Serialize(int depth, const std::wstring& newline) const override;
    double Value() const { return value; }

private:
    friend class JsonReader;
    explicit wJsonNumber(double v) : wJsonValue(wJsonType::number), value(v) {}
    static wJsonNumber* Create(double v);

    double value;
};

class wJsonString final : public wJsonValue {
public:
    void Release() override;
    std::wstring Serialize(int depth, const std::wstring& newline) const override;
    // The unescaped text; it may hold NUL code units (from "\u0000").
    std::wstring_view Text() const { return std::wstring_view(text, length); }

    // Parses a string quoted with '"' or '\'' at the cursor; null on failure.
    static wJsonString* Parse(const wchar_t*& cursor);

private:
    friend class JsonReader;
    wJsonString(wchar_t* buffer, size_t count) : wJsonValue(wJsonType::string), text(buffer), length(count) {}
    ~wJsonString() { delete[] text; }
    static wJsonString* Create(std::wstring_view text);

    // A heap buffer and its length rather than a std::wstring, so that the object fits its pool class.
    wchar_t* text;
    size_t length;
};

class wJsonArray final : public wJsonValue {
public:
    void Release() override;
    std::wstring Serialize(int depth, const std::wstring& newline) const override;

    uint32_t Count() const { return count; }
    // The element at index, which must be below Count().
    const wJsonValue* At(uint32_t index) const { return items[index]; }
    const wJsonValue* const* begin() const { return items; }
    const wJsonValue* const* end() const { return items + count; }
    // A copy of the element's text if it exists and is a string; otherwise empty.
    std::wstring GetString(uint32_t index) const;

private:
    friend class JsonReader;
    wJsonArray() : wJsonValue(wJsonType::array) {}
    ~wJsonArray();
    static wJsonArray* Create();
    void Append(wJsonValue* element);

    // A hand-made growable array: a std::vector would not fit the object into its pool class.
    wJsonValue** items = nullptr;
    uint32_t count = 0;
    uint32_t capacity = 0;
};

class wJsonObject final : public wJsonValue {
public:
    void Release() override;
    std::wstring Serialize(int depth, const std::wstring& newline) const override;

    // The members in key order.
    const wJsonMembers& Members() const { return *members; }
    // The member's value, or null when the key is absent.
    const wJsonValue* Get(const std::wstring& key) const;
    // The member's value if it exists and is an array; otherwise null.
    const wJsonArray* GetArray(const std::wstring& key) const;
    // A copy of the member's text if it exists and is a string; otherwise empty.
    std::wstring GetString(const std::wstring& key) const;

    // Parses an object at the cursor, the entry for whole documents; null on failure.
    static wJsonObject* Parse(const wchar_t*& cursor);

private:
    friend class JsonReader;
    wJsonObject();
    ~wJsonObject();
    static wJsonObject* Create();
    // Adds the member; a key already present takes the new value and the earlier one is released.
    void Insert(std::wstring&& key, wJsonValue* value);
    // Puts the members in key order once the closing brace is read; of a repeated key the last
    // value stays and the earlier ones are released.
    void Finish();

    wJsonMembers* members;
};

// Advances the cursor over U+0009 to U+000D and U+0020.
void SkipJsonWhitespace(const wchar_t*& cursor);
// The text in double quotes with the writer's escapes.
std::wstring EscapeJsonString(std::wstring_view text);
