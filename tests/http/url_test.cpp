// HttpUrl::Parse, Clear and copy.
#include <gtest/gtest.h>
#include "http/url.h"

TEST(HttpUrl, SplitsAndLowersOnlySchemeAndHost)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://Some.HOST/A?x=1"));
    EXPECT_EQ(u.url, L"http://Some.HOST/A?x=1");
    EXPECT_EQ(u.scheme, L"http://");
    EXPECT_EQ(u.host, L"some.host");
    EXPECT_EQ(u.port, 80u);
    EXPECT_EQ(u.pathAndQuery, L"/A?x=1");
    EXPECT_EQ(u.path, L"/A");
    EXPECT_EQ(u.query, L"x=1");
    ASSERT_EQ(u.queryParams.size(), 1u);
    EXPECT_EQ(u.queryParams[L"x"], L"1");
}

TEST(HttpUrl, NothingAfterTheAuthorityGivesSlash)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://host"));
    EXPECT_EQ(u.host, L"host");
    EXPECT_EQ(u.pathAndQuery, L"/");
    EXPECT_EQ(u.path, L"/");
    EXPECT_TRUE(u.query.empty());
    EXPECT_TRUE(u.queryParams.empty());
}

TEST(HttpUrl, NoSchemeWithPort)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"host:8080/x"));
    EXPECT_TRUE(u.scheme.empty());
    EXPECT_EQ(u.host, L"host");
    EXPECT_EQ(u.port, 8080u);
    EXPECT_EQ(u.pathAndQuery, L"/x");
}

TEST(HttpUrl, NoSchemeNoPortGivesPortZero)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"host/x"));
    EXPECT_EQ(u.host, L"host");
    EXPECT_EQ(u.port, 0u);
    EXPECT_EQ(u.pathAndQuery, L"/x");
}

TEST(HttpUrl, PortOutOfRangeFails)
{
    HttpUrl u;
    EXPECT_FALSE(u.Parse(L"http://host:70000/"));
    EXPECT_FALSE(u.Parse(L"http://host:-1/"));
    EXPECT_FALSE(u.Parse(L"http://host:65536/"));
    ASSERT_TRUE(u.Parse(L"http://host:65535/"));
    EXPECT_EQ(u.port, 65535u);
}

TEST(HttpUrl, EmptyPortIsZeroAndNotDefaulted)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://host:/"));
    EXPECT_EQ(u.host, L"host");
    EXPECT_EQ(u.port, 0u);
    ASSERT_TRUE(u.Parse(L"http://host:0/"));
    EXPECT_EQ(u.port, 0u);
}

TEST(HttpUrl, PortDigitsStopAtTheFirstNonDigit)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://host:81x/"));
    EXPECT_EQ(u.port, 81u);
    EXPECT_EQ(u.host, L"host");
}

TEST(HttpUrl, SchemeDefaults)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"HTTPS://h/"));
    EXPECT_EQ(u.scheme, L"https://");
    EXPECT_EQ(u.port, 443u);
    ASSERT_TRUE(u.Parse(L"ftp://h/"));
    EXPECT_EQ(u.port, 21u);
    ASSERT_TRUE(u.Parse(L"gopher://h/"));
    EXPECT_EQ(u.scheme, L"gopher://");
    EXPECT_EQ(u.port, 0u);
}

TEST(HttpUrl, EmptyQueryPiecesAreDropped)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://h/?a=1&&b=2"));
    ASSERT_EQ(u.queryParams.size(), 2u);
    EXPECT_EQ(u.queryParams[L"a"], L"1");
    EXPECT_EQ(u.queryParams[L"b"], L"2");
}

TEST(HttpUrl, QueryPieceWithoutOneEqualsSignFails)
{
    HttpUrl u;
    EXPECT_FALSE(u.Parse(L"http://h/?a"));
    EXPECT_FALSE(u.Parse(L"http://h/?a=b=c"));
    EXPECT_FALSE(u.Parse(L"http://h/?=v"));
    EXPECT_FALSE(u.Parse(L"http://h/?x=1& =v"));
}

TEST(HttpUrl, EmptyValueAndTrimmedValue)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://h/?a="));
    ASSERT_EQ(u.queryParams.size(), 1u);
    EXPECT_EQ(u.queryParams[L"a"], L"");
    ASSERT_TRUE(u.Parse(L"http://h/?a= 1 "));
    EXPECT_EQ(u.queryParams[L"a"], L"1");
    ASSERT_TRUE(u.Parse(L"http://h/?\ta\t=\t1"));
    EXPECT_EQ(u.queryParams[L"a"], L"1");
}

TEST(HttpUrl, RepeatedKeyIgnoringCaseKeepsTheLastValue)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://h/?A=1&a=2"));
    ASSERT_EQ(u.queryParams.size(), 1u);
    EXPECT_EQ(u.queryParams.begin()->second, L"2");
    EXPECT_EQ(u.queryParams[L"A"], L"2");
}

TEST(HttpUrl, NothingIsPercentDecoded)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://h/a%20b?k%3D=v%26"));
    EXPECT_EQ(u.path, L"/a%20b");
    EXPECT_EQ(u.queryParams[L"k%3D"], L"v%26");
}

TEST(HttpUrl, QuestionMarkWithEmptyQuery)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://h/p?"));
    EXPECT_EQ(u.pathAndQuery, L"/p?");
    EXPECT_EQ(u.path, L"/p");
    EXPECT_TRUE(u.query.empty());
}

TEST(HttpUrl, QuestionMarkInTheAuthorityBelongsToTheHost)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://h?a=1"));
    EXPECT_EQ(u.host, L"h?a=1");
    EXPECT_EQ(u.pathAndQuery, L"/");
}

TEST(HttpUrl, EmptyHostFails)
{
    HttpUrl u;
    EXPECT_FALSE(u.Parse(L"/only/path"));
    EXPECT_EQ(u.url, L"/only/path");
    EXPECT_FALSE(u.Parse(L""));
    EXPECT_FALSE(u.Parse(L"http://"));
    EXPECT_FALSE(u.Parse(L"http:///x"));
}

TEST(HttpUrl, OnlyTheFirstSchemeMarkerCounts)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://h/r?u=http://x"));
    EXPECT_EQ(u.scheme, L"http://");
    EXPECT_EQ(u.host, L"h");
    EXPECT_EQ(u.queryParams[L"u"], L"http://x");
}

TEST(HttpUrl, FailureKeepsWhatWasFilled)
{
    HttpUrl u;
    EXPECT_FALSE(u.Parse(L"http://Host:99999/x"));
    EXPECT_EQ(u.scheme, L"http://");
    EXPECT_EQ(u.host, L"host:99999");
    EXPECT_EQ(u.port, 0u);
}

TEST(HttpUrl, ParseStartsFromAClearRecord)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"https://a:1/p?k=v"));
    ASSERT_TRUE(u.Parse(L"b/q"));
    EXPECT_TRUE(u.scheme.empty());
    EXPECT_EQ(u.host, L"b");
    EXPECT_EQ(u.port, 0u);
    EXPECT_TRUE(u.query.empty());
    EXPECT_TRUE(u.queryParams.empty());
}

TEST(HttpUrl, ClearAndCopy)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://h:81/p?a=1&b=2"));
    HttpUrl copy = u;
    EXPECT_EQ(copy.url, u.url);
    EXPECT_EQ(copy.scheme, u.scheme);
    EXPECT_EQ(copy.host, u.host);
    EXPECT_EQ(copy.port, 81u);
    EXPECT_EQ(copy.pathAndQuery, u.pathAndQuery);
    EXPECT_EQ(copy.path, u.path);
    EXPECT_EQ(copy.query, u.query);
    EXPECT_EQ(copy.queryParams, u.queryParams);

    u.Clear();
    EXPECT_TRUE(u.url.empty());
    EXPECT_TRUE(u.scheme.empty());
    EXPECT_TRUE(u.host.empty());
    EXPECT_EQ(u.port, 0u);
    EXPECT_TRUE(u.pathAndQuery.empty());
    EXPECT_TRUE(u.path.empty());
    EXPECT_TRUE(u.query.empty());
    EXPECT_TRUE(u.queryParams.empty());
    EXPECT_EQ(copy.queryParams.size(), 2u);
}

TEST(HttpUrl, ParsingItsOwnUrlAgainKeepsIt)
{
    HttpUrl u;
    ASSERT_TRUE(u.Parse(L"http://h:81/p?a=1"));
    ASSERT_TRUE(u.Parse(u.url));
    EXPECT_EQ(u.url, L"http://h:81/p?a=1");
    EXPECT_EQ(u.host, L"h");
    EXPECT_EQ(u.port, 81u);
    EXPECT_EQ(u.queryParams[L"a"], L"1");
}
