// The writer: scalars, escapes, the layout of arrays and objects, and whole documents.
#include "json/json_support.h"

namespace {

class JsonWriter : public PoolBalanced {};

const std::wstring N = L"\r\n";

std::wstring Write(const std::wstring& text, int depth = 0, const std::wstring& newline = N)
{
    auto value = ParseAny(text);
    if (!value) {
        ADD_FAILURE() << "does not parse: " << testing::PrintToString(text);
        return std::wstring();
    }
    return value->Serialize(depth, newline);
}

}  // namespace

TEST_F(JsonWriter, ObjectWithOneMember)
{
    EXPECT_EQ(Write(L"{\"a\":1}"), L"{\r\n  \"a\": 1\r\n}");
}

TEST_F(JsonWriter, ArrayOfNumbers)
{
    EXPECT_EQ(Write(L"[1,2]"), L"[ 1, 2 ]");
    EXPECT_EQ(Write(L"[7]"), L"[ 7 ]");
}

TEST_F(JsonWriter, ArrayHoldingAnEmptyObject)
{
    EXPECT_EQ(Write(L"[{}]"), L"[" + N + L"  {}" + N + L"]");
}

TEST_F(JsonWriter, ArrayHoldingAnEmptyArray)
{
    EXPECT_EQ(Write(L"[[]]"), L"[" + N + L"  [] ]");
}

TEST_F(JsonWriter, EmptyContainers)
{
    EXPECT_EQ(Write(L"[]"), L"[]");
    EXPECT_EQ(Write(L"{}"), L"{}");
    EXPECT_EQ(Write(L"[ ]", 3), L"[]");
    EXPECT_EQ(Write(L"{ }", 3), L"{}");
}

TEST_F(JsonWriter, Literals)
{
    EXPECT_EQ(Write(L"true"), L"true");
    EXPECT_EQ(Write(L"false"), L"false");
    EXPECT_EQ(Write(L"null"), L"null");
    EXPECT_EQ(Write(L"[true,false,null]"), L"[ true, false, null ]");
}

TEST_F(JsonWriter, StringWithTabApostropheAndControlCharacter)
{
    std::wstring expected = L"\"\\t\\'";
    expected += wchar_t(0x0001);
    expected += L"\"";
    EXPECT_EQ(Write(L"\"\\t'\\u0001\""), expected);
}

TEST_F(JsonWriter, EscapeTable)
{
    std::wstring text({0x08, 0x09, 0x0A, 0x0C, 0x0D, L'"', L'\'', L'\\', L'/', 0x0B, 0x00, 0x1F, 0x7F, 0xE9, 0xD83D, 0xDE00});
    std::wstring expected = L"\"\\b\\t\\n\\f\\r\\\"\\'\\\\/";
    expected += std::wstring({0x0B, 0x00, 0x1F, 0x7F, 0xE9, 0xD83D, 0xDE00});
    expected += L"\"";
    EXPECT_EQ(EscapeJsonString(text), expected);
    EXPECT_EQ(EscapeJsonString(L""), L"\"\"");
    EXPECT_EQ(EscapeJsonString(L"plain text"), L"\"plain text\"");
}

TEST_F(JsonWriter, KeysAreWrittenUnescaped)
{
    EXPECT_EQ(Write(L"{'a\"b':1}"), L"{\r\n  \"a\"b\": 1\r\n}");
    EXPECT_EQ(Write(L"{\"t\\tb\\\\\":'x'}"), L"{\r\n  \"t\tb\\\": \"x\"\r\n}");
}

TEST_F(JsonWriter, NumbersAreExactDecimalExpansions)
{
    EXPECT_EQ(Write(L"5"), L"5");
    EXPECT_EQ(Write(L"123.5"), L"123.5");
    EXPECT_EQ(Write(L"-0.5"), L"-0.5");
    EXPECT_EQ(Write(L"0"), L"0");
    EXPECT_EQ(Write(L"-0"), L"-0");
    EXPECT_EQ(Write(L"007.250"), L"7.25");
    EXPECT_EQ(Write(L".0009765625"), L"0.0009765625");
    EXPECT_EQ(Write(L"9007199254740992"), L"9007199254740992");
    EXPECT_EQ(Write(L"1000000000000000000000"), L"1000000000000000000000");
}

TEST_F(JsonWriter, PointOneHas55DigitsAfterThePoint)
{
    std::wstring written = Write(L"0.1");
    EXPECT_EQ(written, L"0.1000000000000000055511151231257827021181583404541015625");
    EXPECT_EQ(written.size() - written.find(L'.') - 1, 55u);
}

TEST_F(JsonWriter, DepthIndentsAndNewlineIsTheCallers)
{
    EXPECT_EQ(Write(L"{\"a\":[1,{\"b\":2}]}", 1, L"\n"),
              L"{\n    \"a\": [ 1,\n      {\n        \"b\": 2\n      }\n    ]\n  }");
    EXPECT_EQ(Write(L"{\"a\":{\"b\":1}}", -2, L"\n"), L"{\n\"a\": {\n\"b\": 1\n}\n}");
    EXPECT_EQ(Write(L"[[1],{}]", 0, L"<br>"), L"[<br>  [ 1 ],<br>  {}<br>]");
    EXPECT_EQ(Write(L"{\"a\":1,\"b\":2}", 0, L""), L"{  \"a\": 1,  \"b\": 2}");
}

TEST_F(JsonWriter, NestedDocuments)
{
    struct Case {
        const wchar_t* text;
        std::wstring expected;
    };
    const Case cases[] = {
        {L"{\"b\":[1,2],\"a\":\"x\"}",
         L"{" + N + L"  \"a\": \"x\"," + N + L"  \"b\": [ 1, 2 ]" + N + L"}"},
        {L"{\"files\":[{\"n\":\"a\",\"s\":1},{\"s\":2,\"n\":\"b\"}]}",
         L"{" + N +
             L"  \"files\": [" + N +
             L"    {" + N +
             L"      \"n\": \"a\"," + N +
             L"      \"s\": 1" + N +
             L"    }," + N +
             L"    {" + N +
             L"      \"n\": \"b\"," + N +
             L"      \"s\": 2" + N +
             L"    }" + N +
             L"  ]" + N +
             L"}"},
        {L"{\"m\":[[1,2],[3]]}",
         L"{" + N +
             L"  \"m\": [" + N +
             L"    [ 1, 2 ]," + N +
             L"    [ 3 ] ]" + N +
             L"}"},
        {L"{\"x\":[1,{\"a\":true},null]}",
         L"{" + N +
             L"  \"x\": [ 1," + N +
             L"    {" + N +
             L"      \"a\": true" + N +
             L"    }, null ]" + N +
             L"}"},
        {L"{\"e\":{},\"a\":{\"b\":{\"c\":\"d\"}}}",
         L"{" + N +
             L"  \"a\": {" + N +
             L"    \"b\": {" + N +
             L"      \"c\": \"d\"" + N +
             L"    }" + N +
             L"  }," + N +
             L"  \"e\": {}" + N +
             L"}"},
        {L"[[],{},[[]],\"s\"]",
         L"[" + N +
             L"  []," + N +
             L"  {}," + N +
             L"  [" + N +
             L"    [] ], \"s\" ]"},
        {L"[1,{}]", L"[ 1," + N + L"  {}" + N + L"]"},
        {L"[{'a':[]},[{}]]",
         L"[" + N +
             L"  {" + N +
             L"    \"a\": []" + N +
             L"  }," + N +
             L"  [" + N +
             L"    {}" + N +
             L"  ] ]"},
        {L"{'stop':['svc one','svc\\ttwo'],'exe':'C:\\\\app\\\\run.exe','n':[0.5,-3]}",
         L"{" + N +
             L"  \"exe\": \"C:\\\\app\\\\run.exe\"," + N +
             L"  \"n\": [ 0.5, -3 ]," + N +
             L"  \"stop\": [ \"svc one\", \"svc\\ttwo\" ]" + N +
             L"}"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Write(c.text), c.expected) << testing::PrintToString(std::wstring(c.text));
}
