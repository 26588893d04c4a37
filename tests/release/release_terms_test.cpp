// Tests of the signed-release terms: versions, expiry times, the state file's text and the path
// of a manifest's signature.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "release/release_terms.h"

TEST(ReleaseTerms, VersionIsAPositiveWholeNumber)
{
    uint64_t version = 0;
    ASSERT_TRUE(ReadReleaseVersion(1.0, version));
    EXPECT_EQ(version, 1u);
    ASSERT_TRUE(ReadReleaseVersion(1795417683.0, version));
    EXPECT_EQ(version, 1795417683u);
    ASSERT_TRUE(ReadReleaseVersion(9007199254740991.0, version));
    EXPECT_EQ(version, kMaxReleaseVersion);
    for (double bad : {0.0, -1.0, 0.5, 1.5, 9007199254740992.0, 1e300, -0.0, std::nan(""), double(INFINITY)}) {
        version = 77;
        EXPECT_FALSE(ReadReleaseVersion(bad, version)) << bad;
        EXPECT_EQ(version, 77u);
    }
}

TEST(ReleaseTerms, ExpiryTimeAsSecondsSince1970)
{
    const struct {
        const wchar_t* text;
        int64_t seconds;
    } cases[] = {{L"1970-01-01T00:00:00Z", 0},          {L"2020-01-01T00:00:00Z", 1577836800},
                 {L"2024-02-29T23:59:59Z", 1709251199}, {L"2000-02-29T12:00:00Z", 951825600},
                 {L"2038-01-19T03:14:08Z", 2147483648}, {L"9999-12-31T23:59:59Z", 253402300799}};
    for (const auto& c : cases) {
        int64_t seconds = -1;
        ASSERT_TRUE(ReadExpiryTime(c.text, seconds)) << static_cast<const void*>(c.text);
        EXPECT_EQ(seconds, c.seconds);
    }
}

TEST(ReleaseTerms, ExpiryTimeRefusesEveryOtherForm)
{
    for (const wchar_t* bad :
         {L"", L"2020-01-01T00:00:00", L"2020-01-01T00:00:00z", L"2020-01-01 00:00:00Z", L"2020-01-01T00:00:00+00:00",
          L"2020-1-01T00:00:00Z", L"2020-01-01T00:00:00.0Z", L" 2020-01-01T00:00:00Z", L"2020-01-01T00:00:00Z ",
          L"1969-12-31T23:59:59Z", L"2023-02-29T00:00:00Z", L"1900-02-29T00:00:00Z", L"2020-13-01T00:00:00Z",
          L"2020-00-01T00:00:00Z", L"2020-04-31T00:00:00Z", L"2020-01-00T00:00:00Z", L"2020-01-01T24:00:00Z",
          L"2020-01-01T00:60:00Z", L"2020-01-01T00:00:60Z", L"2020-01-01T0a:00:00Z", L"+020-01-01T00:00:00Z",
          L"2020-01-01T00:00:-1Z", L"2020\xFF10" L"1-01T00:00:00Z"}) {
        int64_t seconds = 5;
        EXPECT_FALSE(ReadExpiryTime(bad, seconds)) << static_cast<const void*>(bad);
        EXPECT_EQ(seconds, 5);
    }
}

TEST(ReleaseTerms, AppliedVersionReadsBackWhatIsWritten)
{
    for (uint64_t version : {uint64_t(1), uint64_t(7), uint64_t(1795417683), kMaxReleaseVersion}) {
        std::string text = FormatAppliedVersion(version);
        EXPECT_EQ(text, std::to_string(version) + "\r\n");
        uint64_t read = 0;
        ASSERT_TRUE(ReadAppliedVersion(text.data(), text.size(), read));
        EXPECT_EQ(read, version);
    }
    uint64_t read = 0;
    ASSERT_TRUE(ReadAppliedVersion("42", 2, read));
    EXPECT_EQ(read, 42u);
    for (const std::string& bad : {std::string(), std::string("\r\n"), std::string("0\r\n"), std::string("07\r\n"),
                                   std::string("7\n"), std::string("7\r\n\r\n"), std::string(" 7"), std::string("-7"),
                                   std::string("7x"), std::string("9007199254740992"), std::string("99999999999999999"),
                                   std::string("1\0", 2)}) {
        read = 3;
        EXPECT_FALSE(ReadAppliedVersion(bad.data(), bad.size(), read)) << bad;
        EXPECT_EQ(read, 3u);
    }
}

TEST(ReleaseTerms, SignaturePathEndsThePathPart)
{
    EXPECT_EQ(SignaturePath(L"/m.json"), L"/m.json.sig");
    EXPECT_EQ(SignaturePath(L"/a/m.json?x=1&y=2"), L"/a/m.json.sig?x=1&y=2");
    EXPECT_EQ(SignaturePath(L"/m.json?q?r"), L"/m.json.sig?q?r");
    EXPECT_EQ(SignaturePath(L"/?"), L"/.sig?");
}
