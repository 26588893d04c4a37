// JsonLine: compact strict JSON, members in the order written, every string escaped for any reader.
#include <gtest/gtest.h>
#include "json/line.h"

TEST(JsonLine, MembersInOrderOnOneLine)
{
    JsonLine inner;
    inner.Strings("domains", {L"a:1", L"b"}).Number("port", 0);
    JsonLine line;
    line.String("event", L"start").Number("size", 18446744073709551615ull).Object("configuration", inner);
    EXPECT_EQ(line.Text(),
              "{\"event\":\"start\",\"size\":18446744073709551615,\"configuration\":{\"domains\":[\"a:1\",\"b\"],"
              "\"port\":0}}");
}

TEST(JsonLine, EmptyParts)
{
    EXPECT_EQ(JsonLine().Text(), "{}");
    EXPECT_EQ(JsonLine().Strings("none", {}).Object("empty", JsonLine()).Text(), "{\"none\":[],\"empty\":{}}");
}

TEST(JsonLine, StringsEscapedStrictly)
{
    // The apostrophe stays as it is (the log's writer escapes it, which JSON readers refuse).
    EXPECT_EQ(EscapeJsonStrict(L"it's \"q\" a\\b"), L"\"it's \\\"q\\\" a\\\\b\"");
    EXPECT_EQ(EscapeJsonStrict(std::wstring(L"\n\r\t\x01\x1f\x7f", 6)), L"\"\\n\\r\\t\\u0001\\u001f\x7f\"");
    EXPECT_EQ(EscapeJsonStrict(std::wstring(1, L'\0')), L"\"\\u0000\"");
}

TEST(JsonLine, TextIsUtf8)
{
    EXPECT_EQ(JsonLine().String("n", L"b \u00e9\u4e2d").Text(), "{\"n\":\"b \xc3\xa9\xe4\xb8\xad\"}");
}
