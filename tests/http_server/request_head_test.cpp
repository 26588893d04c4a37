// The request-head reader of the file server: complete heads and their fields, every cut of a
// valid head, each refusal with its status, the order in which refusals decide, and the limits.
#include <gtest/gtest.h>
#include "http_server/request_head.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Result {
    int64_t used;
    RequestHead head;
};

// Parses from an exact-size heap copy.
Result Parse(const std::string& bytes)
{
    std::unique_ptr<char[]> copy(new char[bytes.size() + 1]);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    Result result;
    result.used = ParseRequestHead(copy.get(), bytes.size(), result.head);
    return result;
}

uint32_t Refusal(const std::string& bytes)
{
    Result result = Parse(bytes);
    EXPECT_EQ(result.used < 0, result.head.refusal != 0);
    return result.used < 0 ? result.head.refusal : 0;
}

const std::string kHead = "GET /dir/sub%20file.txt HTTP/1.1\r\nHost: 192.168.0.7:8090\r\nUser-Agent: x\r\n"
                          "Accept: */*\r\n\r\n";

}  // namespace

TEST(RequestHead, CompleteHeadAndItsFields)
{
    Result result = Parse(kHead + "trailing bytes");
    ASSERT_EQ(result.used, static_cast<int64_t>(kHead.size()));
    EXPECT_EQ(result.head.method, "GET");
    EXPECT_EQ(result.head.target, "/dir/sub%20file.txt");
    EXPECT_EQ(result.head.minorVersion, 1u);
    EXPECT_EQ(result.head.headers.size(), 3u);
    EXPECT_EQ(result.head.headers[L"host"], L"192.168.0.7:8090");
    EXPECT_EQ(result.head.headers[L"Accept"], L"*/*");
    EXPECT_EQ(result.head.refusal, 0u);

    result = Parse("HEAD /a?b=c HTTP/1.0\r\n\r\n");
    ASSERT_EQ(result.used, 24);
    EXPECT_EQ(result.head.method, "HEAD");
    EXPECT_EQ(result.head.target, "/a?b=c");
    EXPECT_EQ(result.head.minorVersion, 0u);
    EXPECT_TRUE(result.head.headers.empty());

    result = Parse("GET / HTTP/1.9\r\nhOsT:\r\nX:  a b\t \r\nX: last\r\nY:\xC3\xA9\r\n\r\n");
    ASSERT_GT(result.used, 0);
    EXPECT_EQ(result.head.headers[L"Host"], L"");
    EXPECT_EQ(result.head.headers[L"x"], L"last");
    EXPECT_EQ(result.head.headers[L"Y"], L"\u00e9");
}

TEST(RequestHead, EveryCutOfAValidHeadWaits)
{
    for (size_t cut = 0; cut < kHead.size(); ++cut) {
        Result result = Parse(kHead.substr(0, cut));
        EXPECT_EQ(result.used, 0) << cut;
        EXPECT_EQ(result.head.refusal, 0u) << cut;
    }
}

TEST(RequestHead, LinesEndWithCrLfOnly)
{
    EXPECT_EQ(Refusal("GET / HTTP/1.1\n"), 400u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\nHost: a\n\n"), 400u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\rHost: a\r\r"), 400u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nHost: a\n"), 400u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nHost: a\r\n\n"), 400u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nHost: a\rb\r\n\r\n"), 400u);
    EXPECT_EQ(Refusal("\r\nGET / HTTP/1.1\r\nHost: a\r\n\r\n"), 400u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nHost: a\r\n\r"), 0u);
}

TEST(RequestHead, BadRequestLines)
{
    for (const std::string& line : std::vector<std::string>{"GET /", "GET / HTTP/1.1 x", "GET  / HTTP/1.1", "GET /  HTTP/1.1", " GET / HTTP/1.1",
                             "GET / HTTP/1.1 ", "GET\t/ HTTP/1.1", "G(T / HTTP/1.1", "GET / HTTP/11", "GET / HTTP/1.",
                             "GET / HTTP/1.x", "GET / http/1.1", "GET / HTTP/1.10", "GET /a\x01 HTTP/1.1",
                             "GET /\xC3\xA9 HTTP/1.1", "GET /\x7F HTTP/1.1", "", "GET", std::string("GET / HTTP/1.1\0", 15)})
        EXPECT_EQ(Refusal(line + "\r\nHost: a\r\n\r\n"), 400u) << line;
}

TEST(RequestHead, VersionsOtherThanOnePointX)
{
    EXPECT_EQ(Refusal("GET / HTTP/2.0\r\n\r\n"), 505u);
    EXPECT_EQ(Refusal("GET / HTTP/0.9\r\n\r\n"), 505u);
    EXPECT_EQ(Refusal("POST / HTTP/2.0\r\n\r\n"), 505u);
}

TEST(RequestHead, MethodsOtherThanGetAndHead)
{
    for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "CONNECT", "PATCH", "get", "Head", "GETX"})
        EXPECT_EQ(Refusal(std::string(method) + " / HTTP/1.1\r\nHost: a\r\n\r\n"), 405u) << method;
}

TEST(RequestHead, TargetsThatAreNoPath)
{
    for (const char* target : {"*", "a.txt", "http://h/a.txt", "%2F", "/a%", "/a%4", "/a%4g", "/%%41", "/a%zz"})
        EXPECT_EQ(Refusal(std::string("GET ") + target + " HTTP/1.1\r\nHost: a\r\n\r\n"), 400u) << target;
    EXPECT_EQ(Refusal("GET /a%4A%4a?%41 HTTP/1.1\r\nHost: a\r\n\r\n"), 0u);
}

TEST(RequestHead, BadHeaderLines)
{
    for (const std::string& line : {std::string("Host a"), std::string("Host : a"), std::string(" Host: a"),
                                     std::string("\tX: a"), std::string(": a"), std::string("Ho(st: a"),
                                     std::string("X: a\x01"), std::string("X: a\x7F"), std::string("X\xC3\xA9: a"),
                                     std::string("X: a\0b", 6)})
        EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nHost: a\r\n" + line + "\r\n\r\n"), 400u) << line;
}

TEST(RequestHead, HostIsNeededOnceInOnePointOne)
{
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\n\r\n"), 400u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nX: a\r\n\r\n"), 400u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nHost: a\r\nhost: b\r\n\r\n"), 400u);
    EXPECT_EQ(Refusal("GET / HTTP/1.0\r\n\r\n"), 0u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nHOST: a\r\n\r\n"), 0u);
}

TEST(RequestHead, RefusalsAreJudgedAsSoonAsTheirLineIsComplete)
{
    EXPECT_EQ(Refusal("POST / HTTP/1.1\r\n"), 405u);
    EXPECT_EQ(Refusal("GET x HTTP/1.1\r\n"), 400u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nbad\r\n"), 400u);
    EXPECT_EQ(Refusal("POST / HTTP/1.1\r"), 0u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nbad\r"), 0u);
}

TEST(RequestHead, TheFirstBrokenRuleDecides)
{
    // Request-line syntax before the version, the version before the method, the method before the
    // target, the request line before any header line, a header line before the missing Host.
    EXPECT_EQ(Refusal("POST  / HTTP/2.0\r\n\r\n"), 400u);
    EXPECT_EQ(Refusal("POST /%zz HTTP/2.0\r\n\r\n"), 505u);
    EXPECT_EQ(Refusal("POST /%zz HTTP/1.1\r\n\r\n"), 405u);
    EXPECT_EQ(Refusal("POST / HTTP/1.1\r\nbad line\r\n\r\n"), 405u);
    EXPECT_EQ(Refusal("POST / HTTP/1.1\r\n" + std::string(9000, 'a')), 405u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nbad line\r\n" + std::string(9000, 'a')), 400u);
    EXPECT_EQ(Refusal("GET / HTTP/1.1\r\nX: a\r\n" + std::string(9000, 'a')), 431u);
    EXPECT_EQ(Refusal(std::string(9000, 'a') + " / HTTP/1.1\r\n\r\n"), 414u);
}

TEST(RequestHead, RequestLineLimit)
{
    std::string start = "GET /";
    std::string end = " HTTP/1.0";
    std::string longest = start + std::string(kMaxRequestLine - start.size() - end.size(), 'a') + end;
    ASSERT_EQ(longest.size(), kMaxRequestLine);
    EXPECT_EQ(Refusal(longest), 0u);
    EXPECT_EQ(Refusal(longest + "\r"), 0u);
    // The line fits, but no head can end within its limit after it.
    EXPECT_EQ(Refusal(longest + "\r\n"), 431u);
    std::string over = start + std::string(kMaxRequestLine - start.size() - end.size() + 1, 'a') + end;
    EXPECT_EQ(Refusal(over), 414u);
    EXPECT_EQ(Refusal(over.substr(0, kMaxRequestLine)), 0u);
    EXPECT_EQ(Refusal(over.substr(0, kMaxRequestLine + 1)), 414u);
    EXPECT_EQ(Refusal(std::string(kMaxRequestLine + 1, 'x')), 414u);
}

TEST(RequestHead, HeadLimit)
{
    std::string line = "GET / HTTP/1.1\r\nHost: a\r\nX: ";
    std::string fits = line + std::string(kMaxRequestHead - line.size() - 4, 'v') + "\r\n\r\n";
    ASSERT_EQ(fits.size(), kMaxRequestHead);
    Result result = Parse(fits + "more");
    EXPECT_EQ(result.used, static_cast<int64_t>(kMaxRequestHead));
    for (size_t cut = kMaxRequestHead - 8; cut < kMaxRequestHead; ++cut)
        EXPECT_EQ(Refusal(fits.substr(0, cut)), 0u) << cut;
    std::string over = line + std::string(kMaxRequestHead - line.size() - 3, 'v') + "\r\n\r\n";
    EXPECT_EQ(Refusal(over), 431u);
    EXPECT_EQ(Refusal(over.substr(0, kMaxRequestHead - 2)), 0u);
    EXPECT_EQ(Refusal(over.substr(0, kMaxRequestHead - 1)), 431u);
    EXPECT_EQ(Refusal(line + std::string(20000, 'v')), 431u);
    std::string manyLines = "GET / HTTP/1.1\r\nHost: a\r\n";
    while (manyLines.size() < kMaxRequestHead + 100)
        manyLines += "X: y\r\n";
    EXPECT_EQ(Refusal(manyLines), 431u);
}
