// Text helpers: conversions, formatting, percent-encoding and the shared parsing helpers.
#include <gtest/gtest.h>
#include "runtime/text.h"

TEST(FormatByteSize, Boundaries)
{
    EXPECT_EQ(FormatByteSize(0), L"0 B");
    EXPECT_EQ(FormatByteSize(1023), L"1023 B");
    EXPECT_EQ(FormatByteSize(1024), L"1 KB");
    EXPECT_EQ(FormatByteSize(1048575), L"1023 KB");
    EXPECT_EQ(FormatByteSize(1048576), L"1.0 MB");
    EXPECT_EQ(FormatByteSize(1572864), L"1.5 MB");
    EXPECT_EQ(FormatByteSize(1073741823), L"1023.9 MB");
    EXPECT_EQ(FormatByteSize(1073741824), L"1.00 GB");
    EXPECT_EQ(FormatByteSize(1610612736), L"1.50 GB");
    EXPECT_EQ(FormatByteSize(5ull << 40), L"5120.00 GB");
}

TEST(UrlDecode, PlusHexAndUtf8)
{
    EXPECT_EQ(UrlDecode(L"a+b%41"), L"a bA");
    EXPECT_EQ(UrlDecode(L"%C3%A9"), L"\u00E9");
    EXPECT_EQ(UrlDecode(L"%7B%22a%22:1}"), L"{\"a\":1}");
    EXPECT_EQ(UrlDecode(L"%7b"), L"{");
}

TEST(UrlDecode, BrokenEscapeEndsTheText)
{
    EXPECT_EQ(UrlDecode(L"ab%4"), L"ab");
    EXPECT_EQ(UrlDecode(L"ab%G1cd"), L"ab");
    EXPECT_EQ(UrlDecode(L"ab%"), L"ab");
    EXPECT_EQ(UrlDecode(L"%4"), L"");
}

TEST(UrlDecode, OtherCodeUnitsGiveTheirLowByte)
{
    // U+0141 has the low byte 0x41.
    EXPECT_EQ(UrlDecode(L"\u0141"), L"A");
}

TEST(UrlEncode, ReservedBytes)
{
    EXPECT_EQ(UrlEncode("a b/c~"), "a%20b%2Fc~");
    EXPECT_EQ(UrlEncode("AZaz09*-_.~"), "AZaz09*-_.~");
    EXPECT_EQ(UrlEncode("\xC3\xA9+%"), "%C3%A9%2B%25");
    EXPECT_EQ(UrlEncode(""), "");
}

TEST(DecodeTextBody, ByteOrderMarks)
{
    EXPECT_EQ(DecodeTextBody("\xEF\xBB\xBF", 3), L"");
    EXPECT_EQ(DecodeTextBody("\xEF\xBB\xBFok", 5), L"ok");
    EXPECT_EQ(DecodeTextBody("\xFF\xFE{}", 4), L"{}");
    EXPECT_EQ(DecodeTextBody("\xC3\xA9", 2), L"\u00E9");
    EXPECT_EQ(DecodeTextBody("", 0), L"");
    EXPECT_EQ(DecodeTextBody("\xEF\xBB", 2), L"\uFFFD");
}

TEST(Conversions, RoundTripAndInvalidBytes)
{
    EXPECT_EQ(Utf8ToWide("\xE2\x82\xAC x"), L"\u20AC x");
    EXPECT_EQ(WideToUtf8(L"\u20AC x"), "\xE2\x82\xAC x");
    EXPECT_EQ(Utf8ToWide("ab\0cd", -1), L"ab");
    EXPECT_EQ(Utf8ToWide("ab\0cd", 5), std::wstring(L"ab\0cd", 5));
    EXPECT_EQ(Utf8ToWide("\xFF"), L"\uFFFD");
    EXPECT_EQ(Utf8ToWide(""), L"");
    EXPECT_EQ(WideToUtf8(L""), "");
    EXPECT_EQ(WideToUtf8(L"\U0001F600"), "\xF0\x9F\x98\x80");
}

TEST(BytesToHex, UpperCaseHighNibbleFirst)
{
    const unsigned char bytes[] = {0x00, 0x0F, 0xA5, 0xFF};
    EXPECT_EQ(BytesToHex(bytes, 4), L"000FA5FF");
    EXPECT_EQ(BytesToHex(bytes, 0), L"");
}

TEST(Format, MicrosoftSemantics)
{
    EXPECT_EQ(FormatW(L"%s|%d", L"wide", 7), L"wide|7");
    EXPECT_EQ(FormatW(L"%I64u", 18446744073709551615ull), L"18446744073709551615");
    EXPECT_EQ(FormatW(L"%hs", "narrow"), L"narrow");
    EXPECT_EQ(FormatA("%s %I64u %lld", "a", 5ull, -3ll), "a 5 -3");
    EXPECT_EQ(FormatA("%ls", L"w"), "w");
    EXPECT_EQ(FormatW(L"%.128g", 0.5), L"0.5");
    EXPECT_EQ(FormatW(L""), L"");
    EXPECT_EQ(FormatA(""), "");
    std::wstring big(5000, L'x');
    EXPECT_EQ(FormatW(L"%s!", big.c_str()), big + L"!");
}

TEST(FormatIPv4, MemoryOrder)
{
    const unsigned char bytes[4] = {0xC0, 0xA8, 0x01, 0x02};
    uint32_t address;
    memcpy(&address, bytes, 4);
    EXPECT_EQ(FormatIPv4(address), L"192.168.1.2");
}

TEST(ModulePath, IsThisProgram)
{
    std::wstring path = GetModulePath();
    ASSERT_GT(path.size(), 18u);
    EXPECT_EQ(path.substr(path.size() - 18), L"\\runtime_tests.exe");
    EXPECT_EQ(GetDirectoryPart(path) + L"\\runtime_tests.exe", path);
}

TEST(DirectoryPart, LastBackslash)
{
    EXPECT_EQ(GetDirectoryPart(L"C:\\a\\b.exe"), L"C:\\a");
    EXPECT_EQ(GetDirectoryPart(L"plain"), L"plain");
    EXPECT_EQ(GetDirectoryPart(L"\\x"), L"");
}

TEST(SplitText, DropsOrKeepsEmptyPieces)
{
    using List = std::vector<std::wstring>;
    EXPECT_EQ(SplitText(L"a&&b&", L"&", false, false), (List{L"a", L"b"}));
    EXPECT_EQ(SplitText(L"a&&b&", L"&", true, false), (List{L"a", L"", L"b", L""}));
    EXPECT_EQ(SplitText(L" a = 1 ", L"=", true, true), (List{L"a", L"1"}));
    EXPECT_EQ(SplitText(L"x\r\ny\n\nz", L"\r\n", false, true), (List{L"x", L"y", L"z"}));
    EXPECT_EQ(SplitText(L"", L"&", false, false), List{});
    EXPECT_EQ(SplitText(L"", L"&", true, false), List{L""});
}

TEST(TrimText, ControlRangeAndBlank)
{
    EXPECT_EQ(TrimText(L"\t\r\n\v\f x y \x0D"), L"x y");
    EXPECT_EQ(TrimText(L"   "), L"");
    EXPECT_EQ(TrimText(L"\x08z"), L"\x08z");
}

TEST(LowerAscii, OnlyLatinCapitals)
{
    EXPECT_EQ(LowerAscii(std::wstring(L"AbZ\u00C9[")), L"abz\u00C9[");
    EXPECT_TRUE(EqualsNoCase(L"Content-Length", L"content-LENGTH"));
    EXPECT_FALSE(EqualsNoCase(L"a", L"ab"));
    EXPECT_LT(CompareNoCase(L"ab", L"ABC"), 0);
    EXPECT_GT(CompareNoCase(L"b", L"A"), 0);
}

TEST(ParseInteger, DecimalAndAutomaticBase)
{
    EXPECT_EQ(ParseInteger(L"8080", 10), 8080);
    EXPECT_EQ(ParseInteger(L"-1", 10), -1);
    EXPECT_EQ(ParseInteger(L"", 10), 0);
    EXPECT_EQ(ParseInteger(L"12ab", 10), 12);
    EXPECT_EQ(ParseInteger(L"0x1F", 0), 31);
    EXPECT_EQ(ParseInteger(L"0X1f", 0), 31);
    EXPECT_EQ(ParseInteger(L"0b101", 0), 5);
    EXPECT_EQ(ParseInteger(L"0x1F", 10), 0);
    EXPECT_EQ(ParseInteger(L"200 OK", 0), 200);
    EXPECT_EQ(ParseInteger(L"007", 0), 7);
    EXPECT_EQ(ParseInteger(L"9223372036854775807", 10), INT64_MAX);
}
