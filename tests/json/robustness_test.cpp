// Randomised robustness of the parser. Generated documents must parse to exactly the values
// they were generated from and every truncation of them must fail; mutated, deeply nested and
// huge inputs must never crash, hang or read past the text's NUL (each input ends right before
// an inaccessible page); and every pool block must come back after Release. The seed is fixed
// and printed, so a failure reproduces; JSON_ROBUSTNESS_SEED runs the test with another one.
#include "json/json_support.h"

#include <windows.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <utility>
#include <vector>

namespace {

constexpr uint64_t kSeed = 0x4A534F4E2D565955;
constexpr long kInputs = 1000000;
constexpr size_t kLongestInput = 8u << 20;

class Random {
public:
    explicit Random(uint64_t seed) : engine(seed) {}
    uint32_t Below(uint32_t n) { return static_cast<uint32_t>(engine() % n); }
    bool OneIn(uint32_t n) { return Below(n) == 0; }
    wchar_t Unit() { return static_cast<wchar_t>(engine() & 0xFFFF); }

private:
    std::mt19937_64 engine;
};

// What a generated document must parse to.
struct Model {
    wJsonType type = wJsonType::null;
    bool flag = false;
    double number = 0;
    std::wstring text;
    std::vector<Model> elements;
    std::vector<std::pair<std::wstring, Model>> members;  // in key order, last occurrence of a key kept
};

bool Matches(const Model& model, const wJsonValue* value)
{
    if (value->type != model.type)
        return false;
    switch (model.type) {
    case wJsonType::null:
        return true;
    case wJsonType::boolean:
        return static_cast<const wJsonBoolean*>(value)->Value() == model.flag;
    case wJsonType::number: {
        double number = static_cast<const wJsonNumber*>(value)->Value();
        return number == model.number && std::signbit(number) == std::signbit(model.number);
    }
    case wJsonType::string:
        return static_cast<const wJsonString*>(value)->Text() == model.text;
    case wJsonType::array: {
        const auto* array = static_cast<const wJsonArray*>(value);
        if (array->Count() != model.elements.size())
            return false;
        for (uint32_t i = 0; i < array->Count(); ++i) {
            if (!Matches(model.elements[i], array->At(i)))
                return false;
        }
        return true;
    }
    case wJsonType::object: {
        const wJsonMembers& members = static_cast<const wJsonObject*>(value)->Members();
        if (members.size() != model.members.size())
            return false;
        auto expected = model.members.begin();
        for (const auto& member : members) {
            if (member.first != expected->first || !Matches(expected->second, member.second))
                return false;
            ++expected;
        }
        return true;
    }
    }
    return false;
}

// Writes random documents in every form the parser accepts: both quote characters, optional
// commas, any of the six white-space code units, escaped and raw text, numbers with leading
// zeros, a leading or trailing dot, repeated keys.
class Generator {
public:
    explicit Generator(Random& source) : random(source) {}

    void Document(std::wstring& text, Model& model)
    {
        text.clear();
        deepest = 1 + random.Below(6);
        Space(text);
        Object(1, text, model);
    }

    // A string of `length` code units of every kind, NUL included.
    std::wstring Content(size_t length)
    {
        std::wstring content;
        content.reserve(length);
        for (size_t i = 0; i < length; ++i) {
            uint32_t pick = random.Below(100);
            if (pick < 55)
                content.push_back(static_cast<wchar_t>(0x20 + random.Below(0x5F)));
            else if (pick < 65)
                content.push_back(L"\"'\\/"[random.Below(4)]);
            else if (pick < 72)
                content.push_back(static_cast<wchar_t>(1 + random.Below(31)));
            else if (pick < 74)
                content.push_back(L'\0');
            else if (pick < 84)
                content.push_back(static_cast<wchar_t>(0x80 + random.Below(0xD800 - 0x80)));
            else if (pick < 90)
                content.push_back(static_cast<wchar_t>(0xD800 + random.Below(0x800)));
            else
                content.push_back(random.Unit());
        }
        return content;
    }

    // The quoted form of `content`; characters that must be escaped are, others sometimes.
    void Quote(const std::wstring& content, std::wstring& out)
    {
        wchar_t quote = random.OneIn(2) ? L'"' : L'\'';
        out.push_back(quote);
        bool escapeMore = random.OneIn(4);
        for (wchar_t c : content) {
            bool must = c == quote || c == L'\\' || c == L'\0';
            if (!must && !(escapeMore && random.OneIn(3))) {
                out.push_back(c);
                continue;
            }
            const wchar_t* named = Named(c);
            if (named && random.Below(4) != 0) {
                out += named;
            } else {
                static const wchar_t kLower[] = L"0123456789abcdef";
                static const wchar_t kUpper[] = L"0123456789ABCDEF";
                const wchar_t* digits = random.OneIn(2) ? kLower : kUpper;
                out += L"\\u";
                for (int shift = 12; shift >= 0; shift -= 4)
                    out.push_back(digits[(c >> shift) & 15]);
            }
        }
        out.push_back(quote);
    }

private:
    static const wchar_t* Named(wchar_t c)
    {
        switch (c) {
        case L'"':
            return L"\\\"";
        case L'\'':
            return L"\\'";
        case L'/':
            return L"\\/";
        case L'\\':
            return L"\\\\";
        case L'\b':
            return L"\\b";
        case L'\f':
            return L"\\f";
        case L'\n':
            return L"\\n";
        case L'\r':
            return L"\\r";
        case L'\t':
            return L"\\t";
        default:
            return nullptr;
        }
    }

    void Space(std::wstring& out)
    {
        static const wchar_t kSpaces[] = {0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x20};
        if (random.OneIn(2))
            return;
        for (uint32_t n = 1 + random.Below(2); n > 0; --n)
            out.push_back(kSpaces[random.Below(6)]);
    }

    void Value(int depth, std::wstring& out, Model& model)
    {
        uint32_t pick = random.Below(depth < deepest ? 10 : 6);
        switch (pick) {
        case 0:
            model.type = wJsonType::boolean;
            model.flag = random.OneIn(2);
            out += model.flag ? L"true" : L"false";
            break;
        case 1:
            model.type = wJsonType::null;
            out += L"null";
            break;
        case 2:
        case 3:
            Number(out, model);
            break;
        case 4:
        case 5:
            model.type = wJsonType::string;
            model.text = Content(random.OneIn(20) ? random.Below(300) : random.Below(12));
            Quote(model.text, out);
            break;
        case 6:
        case 7:
            Array(depth + 1, out, model);
            break;
        default:
            Object(depth + 1, out, model);
            break;
        }
    }

    std::wstring Digits(uint32_t count)
    {
        std::wstring digits;
        for (uint32_t i = 0; i < count; ++i)
            digits.push_back(static_cast<wchar_t>(L'0' + random.Below(10)));
        return digits;
    }

    // At most 12 digits and 6 after the point: mantissa and divisor stay exact, so the value
    // is the correctly rounded quotient.
    void Number(std::wstring& out, Model& model)
    {
        static const double kPowers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6};
        std::wstring whole = Digits(random.Below(7));
        std::wstring fraction = Digits(random.Below(7));
        bool dot = !fraction.empty() || random.OneIn(4);
        if (whole.empty() && fraction.empty())
            whole = Digits(1);
        bool negative = random.OneIn(3);
        uint64_t mantissa = 0;
        for (wchar_t digit : whole + fraction)
            mantissa = mantissa * 10 + static_cast<uint64_t>(digit - L'0');
        model.type = wJsonType::number;
        model.number = static_cast<double>(mantissa) / kPowers[fraction.size()] * (negative ? -1.0 : 1.0);
        if (negative)
            out.push_back(L'-');
        out += whole;
        if (dot)
            out.push_back(L'.');
        out += fraction;
    }

    // Without a comma a number must not run into a following digit or dot.
    void Separate(bool afterNumber, std::wstring& out, const std::wstring& next)
    {
        if (random.Below(5) != 0) {
            out.push_back(L',');
            Space(out);
        } else if (afterNumber && (next[0] == L'.' || (next[0] >= L'0' && next[0] <= L'9'))) {
            out.push_back(L' ');
        }
    }

    void Array(int depth, std::wstring& out, Model& model)
    {
        model.type = wJsonType::array;
        out.push_back(L'[');
        Space(out);
        uint32_t count = random.OneIn(10) ? random.Below(30) : random.Below(5);
        std::wstring element;
        for (uint32_t i = 0; i < count; ++i) {
            element.clear();
            Model child;
            Value(depth, element, child);
            if (i > 0)
                Separate(model.elements.back().type == wJsonType::number, out, element);
            out += element;
            Space(out);
            model.elements.push_back(std::move(child));
        }
        out.push_back(L']');
    }

    void Object(int depth, std::wstring& out, Model& model)
    {
        model.type = wJsonType::object;
        out.push_back(L'{');
        Space(out);
        uint32_t count = random.OneIn(10) ? random.Below(20) : random.Below(5);
        std::map<std::wstring, Model> members;
        std::vector<std::wstring> keys;
        for (uint32_t i = 0; i < count; ++i) {
            if (i > 0 && random.Below(5) != 0) {
                out.push_back(L',');
                Space(out);
            }
            std::wstring key = !keys.empty() && random.OneIn(6) ? keys[random.Below(static_cast<uint32_t>(keys.size()))]
                                                                : Content(random.Below(8));
            keys.push_back(key);
            Quote(key, out);
            Space(out);
            out.push_back(L':');
            Space(out);
            Model child;
            Value(depth, out, child);
            Space(out);
            members[key] = std::move(child);
        }
        out.push_back(L'}');
        for (auto& member : members)
            model.members.emplace_back(member.first, std::move(member.second));
    }

    Random& random;
    int deepest = 1;
};

// Each input is copied so that the code unit after its first NUL lies on an inaccessible page.
class GuardedText {
public:
    GuardedText()
    {
        SYSTEM_INFO system;
        GetSystemInfo(&system);
        size_t page = system.dwPageSize;
        size_t bytes = (kLongestInput * sizeof(wchar_t) + page - 1) / page * page;
        base = static_cast<unsigned char*>(VirtualAlloc(nullptr, bytes + page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        DWORD old = 0;
        if (!base || !VirtualProtect(base + bytes, page, PAGE_NOACCESS, &old))
            std::abort();
        limit = reinterpret_cast<wchar_t*>(base + bytes);
    }
    ~GuardedText() { VirtualFree(base, 0, MEM_RELEASE); }

    const wchar_t* Place(const std::wstring& text)
    {
        size_t length = text.find(L'\0');
        if (length == std::wstring::npos)
            length = text.size();
        if (length + 1 > kLongestInput)
            std::abort();
        wchar_t* start = limit - (length + 1);
        std::memcpy(start, text.data(), length * sizeof(wchar_t));
        start[length] = L'\0';
        end = start + length;
        return start;
    }
    const wchar_t* End() const { return end; }

private:
    unsigned char* base = nullptr;
    wchar_t* limit = nullptr;
    const wchar_t* end = nullptr;
};

class JsonRobustness : public PoolBalanced {
protected:
    JsonRobustness() : random(seed), generator(random) {}

    static uint64_t SeedFromEnvironment()
    {
        const char* text = std::getenv("JSON_ROBUSTNESS_SEED");
        return text ? std::strtoull(text, nullptr, 0) : kSeed;
    }

    enum class Expect { success, failure, anything };

    // Parses one input and checks the outcome; false when the check failed.
    bool Check(const std::wstring& text, Expect expect, const Model* model = nullptr, bool anyValue = false)
    {
        ++inputs;
        long long start = PoolOutstanding();
        const wchar_t* begin = guarded.Place(text);
        const wchar_t* cursor = begin;
        wJsonValue* value = anyValue ? wJsonValue::Parse(cursor) : wJsonObject::Parse(cursor);
        const char* problem = nullptr;
        if (cursor < begin || cursor > guarded.End())
            problem = "cursor outside the text";
        else if (expect == Expect::success && !value)
            problem = "failed to parse";
        else if (expect == Expect::failure && value)
            problem = "parsed although it must fail";
        else if (value && model && !Matches(*model, value))
            problem = "parsed to other values than generated";
        if (value) {
            ++accepted;
            if (value->Serialize(0, L"\r\n").empty())
                problem = "written as empty text";
            value->Release();
        }
        if (!problem && PoolOutstanding() != start)
            problem = "pool blocks not given back";
        if (problem) {
            std::wstring shown = text.size() > 400 ? text.substr(0, 400) + L"..." : text;
            ADD_FAILURE() << problem << " (seed 0x" << std::hex << std::uppercase << seed << std::dec << ", input "
                          << inputs << ", length " << text.size() << "): " << testing::PrintToString(shown);
        }
        return !problem;
    }

    // Mostly code units that mean something to the parser.
    wchar_t Noise()
    {
        static const wchar_t kAlphabet[] = L"{}[]\"',:\\u0123456789abcdefABCDEF.-+etrnulsx \t\r\n\v\f";
        return random.OneIn(4) ? random.Unit() : kAlphabet[random.Below(sizeof(kAlphabet) / sizeof(wchar_t) - 1)];
    }

    std::wstring Mutate(const std::wstring& text, const std::wstring& other)
    {
        std::wstring out = text;
        for (uint32_t n = 1 + random.Below(3); n > 0; --n) {
            size_t at = out.empty() ? 0 : random.Below(static_cast<uint32_t>(out.size()));
            switch (random.Below(6)) {
            case 0:
                if (!out.empty())
                    out[at] = Noise();
                break;
            case 1:
                out.insert(out.begin() + static_cast<ptrdiff_t>(at), Noise());
                break;
            case 2:
                out.erase(at, 1 + random.Below(8));
                break;
            case 3: {
                std::wstring piece = out.substr(at, 1 + random.Below(40));
                out.insert(random.Below(static_cast<uint32_t>(out.size() + 1)), piece);
                break;
            }
            case 4:
                out = out.substr(0, at) + other.substr(random.Below(static_cast<uint32_t>(other.size() + 1)));
                break;
            default:
                if (!out.empty())
                    out[at] = random.OneIn(8) ? L'\0' : static_cast<wchar_t>(out[at] ^ (1u << random.Below(16)));
                break;
            }
        }
        return out;
    }

    // Containers opened `depth` times in all (the root included), closed or not.
    std::wstring DeepDocument(int depth, bool closed)
    {
        std::wstring text = L"{\"a\":";
        std::wstring closers = L"}";
        for (int i = 1; i < depth; ++i) {
            if (random.OneIn(2)) {
                text += L"[";
                closers += L"]";
            } else {
                text += L"{'k':";
                closers += L"}";
            }
        }
        text += L"0";
        if (closed)
            text.append(closers.rbegin(), closers.rend());
        return text;
    }

    uint64_t seed = SeedFromEnvironment();
    Random random;
    Generator generator;
    GuardedText guarded;
    long inputs = 0;
    long accepted = 0;
};

}  // namespace

TEST_F(JsonRobustness, MillionGeneratedAndMutatedInputs)
{
    std::printf("JSON robustness seed: 0x%llX\n", static_cast<unsigned long long>(seed));
    auto started = std::chrono::steady_clock::now();
    std::wstring text;
    std::wstring previous = L"{}";
    Model model;
    long deep = 0;
    long huge = 0;
    for (long round = 0; inputs < kInputs; ++round) {
        model = Model();
        generator.Document(text, model);
        if (!Check(text, Expect::success, &model))
            return;
        // Short of the root's closing brace every prefix is unfinished.
        if (!Check(text.substr(0, random.Below(static_cast<uint32_t>(text.size()))), Expect::failure))
            return;
        std::wstring mutated = Mutate(text, previous);
        if (!Check(mutated, Expect::anything))
            return;
        if (round % 4 == 0 && !mutated.empty()) {
            size_t offset = random.Below(static_cast<uint32_t>(mutated.size()));
            if (!Check(mutated.substr(offset), Expect::anything, nullptr, true))
                return;
        }
        if (round % 16 == 0) {
            std::wstring garbage = Mutate(generator.Content(random.Below(60)), previous);
            if (!Check(L"{" + garbage, Expect::anything) || !Check(garbage, Expect::anything, nullptr, true))
                return;
        }
        if (round % 500 == 0) {
            int depth = kJsonMaxDepth - 3 + static_cast<int>(random.Below(7));
            ++deep;
            if (!Check(DeepDocument(depth, true), depth <= kJsonMaxDepth ? Expect::success : Expect::failure))
                return;
        }
        if (round % 20000 == 0) {
            deep += 2;
            if (!Check(DeepDocument(200000, true), Expect::failure) || !Check(DeepDocument(200000, false), Expect::failure))
                return;
        }
        if (round % 25000 == 0) {
            Model huger;
            huger.type = wJsonType::object;
            Model string;
            string.type = wJsonType::string;
            string.text = generator.Content(1000000 + random.Below(1000000));
            std::wstring document = L"{'big':";
            generator.Quote(string.text, document);
            document += L"}";
            huger.members.emplace_back(L"big", std::move(string));
            huge += 2;
            if (!Check(document, Expect::success, &huger) || !Check(document.substr(0, document.size() - 2), Expect::failure))
                return;
        }
        previous = std::move(text);
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::printf("JSON robustness: %ld inputs (%ld parsed, %ld deeply nested, %ld huge strings) in %.1f s\n", inputs,
                accepted, deep, huge, seconds);
    EXPECT_GE(inputs, kInputs);
}
