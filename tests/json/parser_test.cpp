// The parser: accepted and rejected texts, its leniencies, where it leaves the cursor, the
// nesting bound, and that failures give every pool block back.
#include "json/json_support.h"
#include "support/patience.h"

#include <windows.h>

#include <cmath>
#include <cstdio>
#include <vector>

namespace {

class JsonParser : public PoolBalanced {};

std::wstring Nested(int depth, const std::wstring& open, const std::wstring& inner, const std::wstring& close)
{
    std::wstring text;
    for (int i = 0; i < depth; ++i)
        text += open;
    text += inner;
    for (int i = 0; i < depth; ++i)
        text += close;
    return text;
}

// A root object holding `depth` containers in all: the root and depth - 1 arrays.
std::wstring NestedArrays(int depth)
{
    return L"{\"a\":" + Nested(depth - 1, L"[", L"1", L"]") + L"}";
}

const wJsonString* AsString(const wJsonValue* value)
{
    EXPECT_EQ(value->type, wJsonType::string);
    return static_cast<const wJsonString*>(value);
}

double NumberOf(const wJsonValue* value)
{
    EXPECT_EQ(value->type, wJsonType::number);
    return static_cast<const wJsonNumber*>(value)->Value();
}

// The single member "a" of a parsed document.
JsonTree<wJsonObject> ParseMemberA(const std::wstring& text, const wJsonValue*& value)
{
    auto root = ParseDocument(text);
    value = root && root->Members().size() == 1 && root->Members().count(L"a") ? root->Members().at(L"a") : nullptr;
    return root;
}

}  // namespace

TEST_F(JsonParser, EmptyObjects)
{
    for (const wchar_t* text : {L"{}", L"{ }", L" \r\n\t{\t}", L"{\r\n}"}) {
        auto root = ParseDocument(text);
        ASSERT_TRUE(root) << testing::PrintToString(std::wstring(text));
        EXPECT_TRUE(root->Members().empty());
    }
}

TEST_F(JsonParser, IncompleteObjectsFail)
{
    for (const wchar_t* text : {L"", L"   ", L"{", L"{ ", L"{\"a\"", L"{\"a\":", L"{\"a\":1", L"{\"a\":1 ",
                                L"{\"a\":1,", L"{\"a\":[1,2]", L"{\"a\":{}", L"{'a':'b'"}) {
        EXPECT_FALSE(ParseDocument(text)) << testing::PrintToString(std::wstring(text));
    }
}

TEST_F(JsonParser, CursorStopsAfterTheRootAndIgnoresTheRest)
{
    const wchar_t* text = L"  {\"a\":1}xyz";
    const wchar_t* cursor = text;
    JsonTree<wJsonObject> root(wJsonObject::Parse(cursor));
    ASSERT_TRUE(root);
    EXPECT_EQ(cursor, text + 9);
    EXPECT_EQ(root->Members().size(), 1u);

    EXPECT_TRUE(ParseDocument(L"{}xyz"));
    EXPECT_TRUE(ParseDocument(L"{} {"));
}

TEST_F(JsonParser, RootMustBeAnObject)
{
    for (const wchar_t* text : {L"[1]", L"[]", L"\"s\"", L"1", L"true", L"null", L"}"})
        EXPECT_FALSE(ParseDocument(text)) << testing::PrintToString(std::wstring(text));
}

TEST_F(JsonParser, SingleAndDoubleQuotedStrings)
{
    const wJsonValue* value = nullptr;
    auto root = ParseMemberA(L"{'a':['single', \"double\"]}", value);
    ASSERT_TRUE(value);
    ASSERT_EQ(value->type, wJsonType::array);
    const auto* array = static_cast<const wJsonArray*>(value);
    ASSERT_EQ(array->Count(), 2u);
    EXPECT_EQ(AsString(array->At(0))->Text(), L"single");
    EXPECT_EQ(AsString(array->At(1))->Text(), L"double");
}

TEST_F(JsonParser, QuotesInsideStrings)
{
    const wJsonValue* value = nullptr;
    auto escaped = ParseMemberA(L"{\"a\":'it\\'s'}", value);
    ASSERT_TRUE(value);
    EXPECT_EQ(AsString(value)->Text(), L"it's");

    auto otherQuote = ParseMemberA(L"{\"a\":'say \"hi\"'}", value);
    ASSERT_TRUE(value);
    EXPECT_EQ(AsString(value)->Text(), L"say \"hi\"");

    auto apostrophe = ParseMemberA(L"{\"a\":\"it's \\\"so\\\"\"}", value);
    ASSERT_TRUE(value);
    EXPECT_EQ(AsString(value)->Text(), L"it's \"so\"");
}

TEST_F(JsonParser, UnicodeEscapes)
{
    const wJsonValue* value = nullptr;
    auto lower = ParseMemberA(L"{\"a\":\"\\u0041\\u00e9\"}", value);
    ASSERT_TRUE(value);
    EXPECT_EQ(AsString(value)->Text(), std::wstring({0x0041, 0x00E9}));

    auto upper = ParseMemberA(L"{\"a\":\"\\u00E9\\uABCD\\uabcd\\u0000\"}", value);
    ASSERT_TRUE(value);
    EXPECT_EQ(AsString(value)->Text(), std::wstring({0x00E9, 0xABCD, 0xABCD, 0x0000}));
}

TEST_F(JsonParser, SurrogatePairStaysTwoCodeUnits)
{
    const wJsonValue* value = nullptr;
    auto root = ParseMemberA(L"{\"a\":\"\\ud83d\\ude00|\\udc00\"}", value);
    ASSERT_TRUE(value);
    EXPECT_EQ(AsString(value)->Text(), std::wstring({0xD83D, 0xDE00, L'|', 0xDC00}));
}

TEST_F(JsonParser, NamedEscapes)
{
    const wJsonValue* value = nullptr;
    auto root = ParseMemberA(L"{\"a\":\"\\\"\\'\\/\\\\\\b\\f\\n\\r\\t\"}", value);
    ASSERT_TRUE(value);
    EXPECT_EQ(AsString(value)->Text(), std::wstring({L'"', L'\'', L'/', L'\\', 0x08, 0x0C, 0x0A, 0x0D, 0x09}));
}

TEST_F(JsonParser, ControlCharactersAndOtherTextAreTakenLiterally)
{
    const wJsonValue* value = nullptr;
    std::wstring raw({L'\t', 0x01, L'\n', 0x1F, 0x7F, 0xE9, 0xD800, 0xFFFF});
    auto root = ParseMemberA(L"{\"a\":\"" + raw + L"\"}", value);
    ASSERT_TRUE(value);
    EXPECT_EQ(AsString(value)->Text(), raw);
}

TEST_F(JsonParser, BadEscapesFail)
{
    for (const wchar_t* text : {L"{\"a\":\"\\x41\"}", L"{\"a\":\"\\a\"}", L"{\"a\":\"\\U0041\"}", L"{\"a\":\"\\0\"}",
                                L"{\"a\":\"\\ \"}", L"{\"a\":\"\\u00g1\"}", L"{\"a\":\"\\u12\"}", L"{\"a\":\"\\u-123\"}",
                                L"{\"a\":\"\\u 123\"}", L"{\"a\":\"\\u12"}) {
        EXPECT_FALSE(ParseDocument(text)) << testing::PrintToString(std::wstring(text));
    }
}

TEST_F(JsonParser, UnterminatedStringsFail)
{
    for (const wchar_t* text : {L"{\"a\":\"abc", L"{\"a\":'abc\"}", L"{\"a\":\"abc'}", L"{\"a\":\"abc\\\"}",
                                L"{\"a\":\"", L"{\"a\":'", L"{\"a\":\"\\", L"{\"ab", L"{'"}) {
        EXPECT_FALSE(ParseDocument(text)) << testing::PrintToString(std::wstring(text));
    }
}

TEST_F(JsonParser, StringParseOnItsOwn)
{
    const wchar_t* text = L" \t'abc'rest";
    const wchar_t* cursor = text;
    JsonTree<wJsonString> value(wJsonString::Parse(cursor));
    ASSERT_TRUE(value);
    EXPECT_EQ(value->Text(), L"abc");
    EXPECT_EQ(cursor, text + 7);

    const wchar_t* empty = L"\"\"";
    cursor = empty;
    JsonTree<wJsonString> nothing(wJsonString::Parse(cursor));
    ASSERT_TRUE(nothing);
    EXPECT_EQ(nothing->Text(), L"");
    EXPECT_EQ(cursor, empty + 2);

    for (const wchar_t* bad : {L"abc", L"", L"`abc`", L"1"}) {
        cursor = bad;
        EXPECT_EQ(wJsonString::Parse(cursor), nullptr) << testing::PrintToString(std::wstring(bad));
    }
}

TEST_F(JsonParser, LastOccurrenceOfAKeyWins)
{
    long long start = PoolOutstanding();
    auto root = ParseDocument(L"{\"a\":1,\"b\":true,\"a\":\"two\",\"a\":[3,{}]}");
    ASSERT_TRUE(root);
    ASSERT_EQ(root->Members().size(), 2u);
    const wJsonArray* array = root->GetArray(L"a");
    ASSERT_NE(array, nullptr);
    ASSERT_EQ(array->Count(), 2u);
    EXPECT_EQ(NumberOf(array->At(0)), 3.0);
    EXPECT_EQ(array->At(1)->type, wJsonType::object);
    // The root, "b", and the array with its two elements: the earlier values are gone.
    EXPECT_EQ(PoolOutstanding() - start, 5);
}

TEST_F(JsonParser, NumberForms)
{
    struct Case {
        const wchar_t* text;
        double value;
        size_t consumed;
    };
    const Case cases[] = {
        {L"0", 0.0, 1},          {L"7", 7.0, 1},           {L"007", 7.0, 3},        {L"-12", -12.0, 3},
        {L".5", 0.5, 2},         {L"-.5", -0.5, 3},        {L"5.", 5.0, 2},         {L"123.456", 123.456, 7},
        {L"0.1", 0.1, 3},        {L"1.2.3", 1.2, 3},       {L"1e5", 1.0, 1},        {L"1E5", 1.0, 1},
        {L"2-3", 2.0, 1},        {L"  42 ", 42.0, 4},      {L"9007199254740993", 9007199254740992.0, 16},
        {L"1000000000000000000000", 1e21, 22},            {L"-0.000001", -0.000001, 9},
    };
    for (const Case& c : cases) {
        const wchar_t* cursor = c.text;
        JsonTree<wJsonValue> value(wJsonValue::Parse(cursor));
        ASSERT_TRUE(value) << testing::PrintToString(std::wstring(c.text));
        EXPECT_EQ(NumberOf(value.get()), c.value) << testing::PrintToString(std::wstring(c.text));
        EXPECT_EQ(static_cast<size_t>(cursor - c.text), c.consumed) << testing::PrintToString(std::wstring(c.text));
    }
}

TEST_F(JsonParser, NegativeZeroKeepsItsSign)
{
    auto value = ParseAny(L"-0");
    ASSERT_TRUE(value);
    EXPECT_EQ(NumberOf(value.get()), 0.0);
    EXPECT_TRUE(std::signbit(NumberOf(value.get())));
}

TEST_F(JsonParser, NumbersBeyondTheRangeOfADouble)
{
    std::wstring nines(400, L'9');
    auto huge = ParseAny(nines);
    ASSERT_TRUE(huge);
    EXPECT_TRUE(std::isinf(NumberOf(huge.get())));
    EXPECT_GT(NumberOf(huge.get()), 0.0);

    auto negative = ParseAny(L"-" + nines);
    ASSERT_TRUE(negative);
    EXPECT_TRUE(std::isinf(NumberOf(negative.get())));
    EXPECT_LT(NumberOf(negative.get()), 0.0);

    // Mantissa and divisor both overflow.
    auto neither = ParseAny(nines + L"." + nines);
    ASSERT_TRUE(neither);
    EXPECT_TRUE(std::isnan(NumberOf(neither.get())));

    // Only the divisor overflows.
    auto tiny = ParseAny(L"." + std::wstring(400, L'0') + L"1");
    ASSERT_TRUE(tiny);
    EXPECT_EQ(NumberOf(tiny.get()), 0.0);
}

TEST_F(JsonParser, NumbersWithoutDigitsFail)
{
    struct Case {
        const wchar_t* text;
        size_t consumed;
    };
    // The sign and a dot stay consumed.
    const Case cases[] = {{L"-", 1}, {L".", 1}, {L"-.", 2}, {L"-.x", 2}, {L"--1", 1}, {L"-x", 1}, {L"..5", 1}};
    for (const Case& c : cases) {
        const wchar_t* cursor = c.text;
        EXPECT_EQ(wJsonValue::Parse(cursor), nullptr) << testing::PrintToString(std::wstring(c.text));
        EXPECT_EQ(static_cast<size_t>(cursor - c.text), c.consumed) << testing::PrintToString(std::wstring(c.text));
    }
    for (const wchar_t* text : {L"+1", L"{\"a\":+1}", L"{\"a\":-}", L"{\"a\":.}", L"{\"a\":[-.]}"})
        EXPECT_FALSE(ParseAny(text)) << testing::PrintToString(std::wstring(text));
}

TEST_F(JsonParser, ExponentFailsInsideContainers)
{
    for (const wchar_t* text : {L"{\"a\":1e3}", L"{\"a\":[1e3]}", L"{\"a\":1E3}", L"{\"a\":1.5e-3}", L"{\"a\":[1, 2e1]}"})
        EXPECT_FALSE(ParseDocument(text)) << testing::PrintToString(std::wstring(text));
    EXPECT_FALSE(ParseAny(L"[1e3]"));
}

TEST_F(JsonParser, LiteralsIgnoreWhatFollows)
{
    struct Case {
        const wchar_t* text;
        wJsonType type;
        size_t consumed;
    };
    const Case cases[] = {{L"trueabc", wJsonType::boolean, 4}, {L"falsey", wJsonType::boolean, 5},
                          {L"nullx", wJsonType::null, 4},      {L" true", wJsonType::boolean, 5},
                          {L"null", wJsonType::null, 4},       {L"true1", wJsonType::boolean, 4}};
    for (const Case& c : cases) {
        const wchar_t* cursor = c.text;
        JsonTree<wJsonValue> value(wJsonValue::Parse(cursor));
        ASSERT_TRUE(value) << testing::PrintToString(std::wstring(c.text));
        EXPECT_EQ(value->type, c.type);
        EXPECT_EQ(static_cast<size_t>(cursor - c.text), c.consumed) << testing::PrintToString(std::wstring(c.text));
    }
    EXPECT_TRUE(static_cast<const wJsonBoolean*>(ParseAny(L"trueabc").get())->Value());
    EXPECT_FALSE(static_cast<const wJsonBoolean*>(ParseAny(L"falsey").get())->Value());
    for (const wchar_t* text : {L"tru", L"True", L"NULL", L"fals", L"nul", L"t rue", L"abc", L"", L"   ", L"}", L"]", L","})
        EXPECT_FALSE(ParseAny(text)) << testing::PrintToString(std::wstring(text));
}

TEST_F(JsonParser, LiteralsRunTogetherInAnArray)
{
    auto value = ParseAny(L"[truefalse null\"s\"1]");
    ASSERT_TRUE(value);
    ASSERT_EQ(value->type, wJsonType::array);
    const auto* array = static_cast<const wJsonArray*>(value.get());
    ASSERT_EQ(array->Count(), 5u);
    EXPECT_TRUE(static_cast<const wJsonBoolean*>(array->At(0))->Value());
    EXPECT_FALSE(static_cast<const wJsonBoolean*>(array->At(1))->Value());
    EXPECT_EQ(array->At(2)->type, wJsonType::null);
    EXPECT_EQ(array->GetString(3), L"s");
    EXPECT_EQ(NumberOf(array->At(4)), 1.0);
}

TEST_F(JsonParser, CommasBetweenElementsAreOptional)
{
    struct Case {
        const wchar_t* text;
        std::vector<double> numbers;
    };
    const Case cases[] = {{L"[1 2]", {1, 2}},       {L"[1,2 3]", {1, 2, 3}},    {L"[ 1 , 2 ]", {1, 2}},
                          {L"[1-2]", {1, -2}},      {L"[1.5.5]", {1.5, 0.5}},   {L"[]", {}},
                          {L"[ ]", {}},             {L"[\t1\r\n,\n2\v]", {1, 2}}};
    for (const Case& c : cases) {
        auto value = ParseAny(c.text);
        ASSERT_TRUE(value) << testing::PrintToString(std::wstring(c.text));
        ASSERT_EQ(value->type, wJsonType::array);
        const auto* array = static_cast<const wJsonArray*>(value.get());
        std::vector<double> numbers;
        for (const wJsonValue* element : *array)
            numbers.push_back(NumberOf(element));
        EXPECT_EQ(numbers, c.numbers) << testing::PrintToString(std::wstring(c.text));
    }
}

TEST_F(JsonParser, MisplacedCommasInArraysFail)
{
    for (const wchar_t* text : {L"[,1]", L"[1,,2]", L"[1,]", L"[,]", L"[1, ]", L"[1", L"[1 2", L"[", L"[1,"})
        EXPECT_FALSE(ParseAny(text)) << testing::PrintToString(std::wstring(text));
}

TEST_F(JsonParser, CommasBetweenMembersAreOptional)
{
    for (const wchar_t* text : {L"{\"a\":1 \"b\":2}", L"{'a':1'b':2}", L"{\"a\":1,\"b\":2}", L"{ \"a\" : 1 , \"b\" : 2 }"}) {
        auto root = ParseDocument(text);
        ASSERT_TRUE(root) << testing::PrintToString(std::wstring(text));
        ASSERT_EQ(root->Members().size(), 2u);
        EXPECT_EQ(NumberOf(Member(*root, L"a")), 1.0);
        EXPECT_EQ(NumberOf(Member(*root, L"b")), 2.0);
    }
}

TEST_F(JsonParser, MisplacedCommasAndBrokenMembersFail)
{
    for (const wchar_t* text : {L"{,\"a\":1}", L"{\"a\":1,,\"b\":2}", L"{\"a\":1,}", L"{,}", L"{a:1}", L"{\"a\" 1}",
                                L"{\"a\":}", L"{\"a\"}", L"{1:2}", L"{\"a\"=1}", L"{\"a\"::1}"}) {
        EXPECT_FALSE(ParseDocument(text)) << testing::PrintToString(std::wstring(text));
    }
}

TEST_F(JsonParser, OnlyTheSixWhitespaceCodeUnitsAreSkipped)
{
    const wchar_t* text = L"\t\n\v\f\r {\t\n\v\f\r \"a\"\t\n\v\f\r :\t\n\v\f\r [\t\n\v\f\r 1\t\n\v\f\r ]\t\n\v\f\r }";
    auto root = ParseDocument(text);
    ASSERT_TRUE(root);
    ASSERT_NE(root->GetArray(L"a"), nullptr);
    EXPECT_EQ(root->GetArray(L"a")->Count(), 1u);

    for (const wchar_t* bad : {L"\x00a0{}", L"\xfeff{}", L"{\x00a0}", L"{\"a\":\x2028" L"1}", L"/*c*/{}", L"{\"a\":1\x0085}",
                               L"\x001c{}"}) {
        EXPECT_FALSE(ParseDocument(bad)) << testing::PrintToString(std::wstring(bad));
    }

    const wchar_t* spaces = L" \t\v\f\r\nx";
    const wchar_t* cursor = spaces;
    SkipJsonWhitespace(cursor);
    EXPECT_EQ(cursor, spaces + 6);
    const wchar_t* other = L"\x00a0 ";
    cursor = other;
    SkipJsonWhitespace(cursor);
    EXPECT_EQ(cursor, other);
}

TEST_F(JsonParser, NestedDocument)
{
    auto root = ParseDocument(
        L"{'files':[{'n':'bin/app.exe','h':'DA39A3EE5E6B4B0D3255BFEF95601890AFD80709','s':1024},"
        L"{'n':'data\\\\x.dat','h':'00','s':0.5}],'stop':['svc'],'exe':'app.exe','deep':{'x':{'y':[[true]]}}}");
    ASSERT_TRUE(root);
    const wJsonArray* files = root->GetArray(L"files");
    ASSERT_NE(files, nullptr);
    ASSERT_EQ(files->Count(), 2u);
    ASSERT_EQ(files->At(0)->type, wJsonType::object);
    const auto* first = static_cast<const wJsonObject*>(files->At(0));
    EXPECT_EQ(first->GetString(L"n"), L"bin/app.exe");
    EXPECT_EQ(first->GetString(L"h"), L"DA39A3EE5E6B4B0D3255BFEF95601890AFD80709");
    EXPECT_EQ(NumberOf(Member(*first, L"s")), 1024.0);
    const auto* second = static_cast<const wJsonObject*>(files->At(1));
    EXPECT_EQ(second->GetString(L"n"), L"data\\x.dat");
    EXPECT_EQ(NumberOf(Member(*second, L"s")), 0.5);
    EXPECT_EQ(root->GetArray(L"stop")->GetString(0), L"svc");
    EXPECT_EQ(root->GetString(L"exe"), L"app.exe");
    const auto* deep = static_cast<const wJsonObject*>(Member(*root, L"deep"));
    const auto* x = static_cast<const wJsonObject*>(Member(*deep, L"x"));
    const wJsonArray* y = x->GetArray(L"y");
    ASSERT_NE(y, nullptr);
    ASSERT_EQ(y->At(0)->type, wJsonType::array);
    EXPECT_EQ(static_cast<const wJsonArray*>(y->At(0))->At(0)->type, wJsonType::boolean);
}

TEST_F(JsonParser, FailuresDeepInsideReleaseEverything)
{
    long long start = PoolOutstanding();
    for (const wchar_t* text : {L"{\"a\":[1,{\"b\":[true,null,\"s\",{\"c\":1e3}]}]}", L"{\"a\":{\"b\":{\"c\":[1,2,3,]}}}",
                                L"{\"a\":[\"x\",\"y\"],\"b\":{\"c\":\"\\q\"}}", L"{\"k\":1,\"k\":2,\"k\":[1,2"}) {
        EXPECT_FALSE(ParseDocument(text)) << testing::PrintToString(std::wstring(text));
        EXPECT_EQ(PoolOutstanding(), start) << testing::PrintToString(std::wstring(text));
    }
}

TEST_F(JsonParser, NestingUpToTheBoundParses)
{
    auto arrays = ParseDocument(NestedArrays(kJsonMaxDepth));
    ASSERT_TRUE(arrays);
    const wJsonValue* inner = Member(*arrays, L"a");
    int depth = 1;
    while (inner->type == wJsonType::array) {
        ++depth;
        inner = static_cast<const wJsonArray*>(inner)->At(0);
    }
    EXPECT_EQ(depth, kJsonMaxDepth);
    EXPECT_EQ(NumberOf(inner), 1.0);

    EXPECT_TRUE(ParseDocument(Nested(kJsonMaxDepth, L"{\"a\":", L"1", L"}")));
    EXPECT_TRUE(ParseAny(Nested(kJsonMaxDepth, L"[", L"", L"]")));
}

TEST_F(JsonParser, NestingBeyondTheBoundFails)
{
    long long start = PoolOutstanding();
    EXPECT_FALSE(ParseDocument(NestedArrays(kJsonMaxDepth + 1)));
    EXPECT_FALSE(ParseDocument(Nested(kJsonMaxDepth + 1, L"{\"a\":", L"1", L"}")));
    EXPECT_FALSE(ParseAny(Nested(kJsonMaxDepth + 1, L"[", L"", L"]")));
    EXPECT_FALSE(ParseAny(Nested(kJsonMaxDepth / 2 + 1, L"[{'k':", L"0", L"}]")));
    EXPECT_EQ(PoolOutstanding(), start);
}

TEST_F(JsonParser, VeryDeepInputFailsWithoutExhaustingTheStack)
{
    const int depth = 1000000;
    EXPECT_FALSE(ParseDocument(Nested(depth, L"{\"a\":", L"1", L"}")));
    EXPECT_FALSE(ParseDocument(L"{\"a\":" + std::wstring(depth, L'[')));
    EXPECT_FALSE(ParseAny(Nested(depth, L"[", L"", L"]")));
}

namespace {

DWORD WINAPI ParseWriteReleaseDeepest(void* result)
{
    std::wstring text = Nested(kJsonMaxDepth / 2, L"{'k':[", L"'deep'", L"]}");
    const wchar_t* cursor = text.c_str();
    wJsonObject* root = wJsonObject::Parse(cursor);
    std::wstring written = root ? root->Serialize(0, L"\r\n") : std::wstring();
    if (root)
        root->Release();
    *static_cast<size_t*>(result) = written.size();
    return 0;
}

// Processor time (user and kernel) the calling thread has used, in seconds.
double ThreadSeconds()
{
    FILETIME created, exited, kernel, user;
    GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user);
    auto ticks = [](const FILETIME& time) {
        return (static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    };
    return static_cast<double>(ticks(kernel) + ticks(user)) / 1e7;
}

}  // namespace

TEST_F(JsonParser, DeepestDocumentFitsASmallThreadStack)
{
    size_t written = 0;
    HANDLE thread = CreateThread(nullptr, 256 * 1024, ParseWriteReleaseDeepest, &written,
                                 STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    ASSERT_NE(thread, nullptr);
    ASSERT_EQ(WaitForSingleObject(thread, PatienceMs()), WAIT_OBJECT_0);
    DWORD code = 0;
    GetExitCodeThread(thread, &code);
    CloseHandle(thread);
    EXPECT_EQ(code, 0u);
    EXPECT_GT(written, 0u);
}

TEST_F(JsonParser, LargeManifestParsesInLinearTime)
{
    const int entries = 50000;
    std::wstring text = L"{\"urlPrefix\":\"http://updates.invalid/files/\",\"files\":[";
    for (int i = 0; i < entries; ++i) {
        wchar_t entry[160];
        std::swprintf(entry, 160, L"%ls{\"n\":\"Program\\\\Plugins\\\\library_%05d.dll\",\"h\":\"%08X%032X\",\"s\":%d}",
                      i ? L"," : L"", i, i, 0, i * 37 + 1000);
        text += entry;
    }
    text += L"],\"exe\":\"app.exe\"}";
    ASSERT_GT(text.size(), 5000000u);

    // The parsing thread's own processor time, which other work on the machine does not stretch.
    double started = ThreadSeconds();
    auto root = ParseDocument(text);
    double seconds = ThreadSeconds() - started;
    ASSERT_TRUE(root);
    std::printf("%zu code units, %d entries parsed in %.3f s of processor time\n", text.size(), entries, seconds);
    // Scanning or copying the rest of the text for every string would take minutes here.
    EXPECT_LT(seconds, 1.0);

    const wJsonArray* files = root->GetArray(L"files");
    ASSERT_NE(files, nullptr);
    ASSERT_EQ(files->Count(), static_cast<uint32_t>(entries));
    const auto* last = static_cast<const wJsonObject*>(files->At(entries - 1));
    EXPECT_EQ(last->GetString(L"n"), L"Program\\Plugins\\library_49999.dll");
    EXPECT_EQ(last->GetString(L"h"), L"0000C34F00000000000000000000000000000000");
    EXPECT_EQ(NumberOf(Member(*last, L"s")), 49999.0 * 37 + 1000);
    EXPECT_EQ(root->GetString(L"urlPrefix"), L"http://updates.invalid/files/");
}
