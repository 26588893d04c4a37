// HttpRequest against the scripted loopback server: the request bytes on the wire, responses cut
// into chosen pieces, time-outs, refused and unanswered connects, IPv6, redirects, bodies to
// files and the rate limit. Every connection goes to 127.0.0.1 or ::1.
#include <gtest/gtest.h>
#include "http/test_files.h"
#include "http/fake_resolver.h"
#include "http/request.h"
#include "http/responses.h"
#include "http/script_server.h"
#include "runtime/clock.h"
#include "runtime/pool.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string Redirect(int status, const std::wstring& location)
{
    return "HTTP/1.1 " + std::to_string(status) + " Moved\r\nLocation: " + WideToUtf8(location) +
           "\r\nContent-Length: 0\r\n\r\n";
}

std::string Body(const HttpRequest& request)
{
    if (!request.responseBody)
        return std::string();
    return std::string(static_cast<const char*>(request.responseBody), static_cast<size_t>(request.responseBodyLength));
}

std::string RandomBytes(size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::string bytes(count, '\0');
    for (auto& c : bytes)
        c = static_cast<char>(random() & 0xFF);
    return bytes;
}

int64_t FileSize(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data))
        return -1;
    return (static_cast<int64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

int64_t Elapsed(uint64_t start)
{
    return static_cast<int64_t>(PerformanceMilliseconds() - start);
}

}  // namespace

TEST(HttpWire, GetSendsTheExactHeadWithoutThePortInHost)
{
    long long before = PoolOutstanding();
    ScriptServer server;
    server.Start({Send(Ok("hello", "X-Name:  v \r\n"))});
    {
        HttpRequest request;
        request.Execute(server.Url(L"/a/b?x=1&y=2"));
        EXPECT_EQ(request.status, 200u);
        EXPECT_EQ(Body(request), "hello");
        EXPECT_EQ(request.responseBodyLength, 5);
        EXPECT_EQ(request.responseHeaders[L"x-name"], L"v");
        EXPECT_EQ(request.responseHeaders[L"content-length"], L"5");
        EXPECT_TRUE(request.method.empty());
        EXPECT_EQ(request.Connection().Socket(), static_cast<uintptr_t>(INVALID_SOCKET));
    }
    const auto& requests = server.Finish();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0], "GET /a/b?x=1&y=2 HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(PoolOutstanding(), before);
}

TEST(HttpWire, UserAgentAndHeadersInCaseInsensitiveOrder)
{
    ScriptServer server;
    server.Start({Send(Ok(""))});
    HttpRequest request;
    request.userAgent = L"VeyTest/1.0";
    request.headers[L"X-b"] = L"2";
    request.headers[L"a-First"] = L"1";
    request.headers[L"Range"] = L"bytes=0-";
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 200u);
    ASSERT_EQ(server.Finish().size(), 1u);
    EXPECT_EQ(server.Finish()[0],
              "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\nUser-Agent: VeyTest/1.0\r\n"
              "a-First: 1\r\nRange: bytes=0-\r\nX-b: 2\r\n\r\n");
    EXPECT_EQ(request.userAgent, L"VeyTest/1.0");
    EXPECT_EQ(request.headers.size(), 3u);
}

TEST(HttpWire, BodyWithoutMethodIsAPost)
{
    long long before = PoolOutstanding();
    ScriptServer server;
    server.Start({Send(Ok("done"))});
    {
        HttpRequest request;
        request.body = PoolAlloc(5);
        std::memcpy(request.body, "{\"a\"}", 5);
        request.bodyLength = 5;
        request.ownsBody = 1;
        request.contentType = L"application/json";
        request.Execute(server.Url(L"/post"));
        EXPECT_EQ(request.status, 200u);
        EXPECT_EQ(Body(request), "done");
        EXPECT_TRUE(request.method.empty());
        EXPECT_EQ(request.body, nullptr);
        EXPECT_EQ(request.bodyLength, 0);
        EXPECT_EQ(request.ownsBody, 0);
        EXPECT_TRUE(request.contentType.empty());
    }
    ASSERT_EQ(server.Finish().size(), 1u);
    EXPECT_EQ(server.Finish()[0],
              "POST /post HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\nContent-Length: 5\r\n"
              "Content-Type: application/json\r\n\r\n{\"a\"}");
    EXPECT_EQ(PoolOutstanding(), before);
}

TEST(HttpWire, PostSendsAnEmptyContentType)
{
    ScriptServer server;
    server.Start({Send(Ok(""))});
    HttpRequest request;
    char bytes[] = "abc";
    request.body = bytes;
    request.bodyLength = 3;
    request.Execute(server.Url(L"/p"));
    EXPECT_EQ(request.status, 200u);
    ASSERT_EQ(server.Finish().size(), 1u);
    EXPECT_EQ(server.Finish()[0],
              "POST /p HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\nContent-Length: 3\r\nContent-Type: \r\n\r\nabc");
    EXPECT_EQ(request.body, nullptr);
}

TEST(HttpWire, ExplicitMethodIsSentAsGiven)
{
    ScriptServer server;
    server.Start({Send(Ok(""))});
    HttpRequest request;
    request.method = L"DELETE";
    request.Execute(server.Url(L"/item"));
    EXPECT_EQ(request.status, 200u);
    ASSERT_EQ(server.Finish().size(), 1u);
    EXPECT_EQ(server.Finish()[0], "DELETE /item HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
}

TEST(HttpWire, SendRawPutsTheMethodBytesAheadOfAHeadWithAnEmptyMethod)
{
    ScriptServer server;
    server.Start({Send(Ok("r"))});
    HttpRequest request;
    request.sendRaw = 1;
    request.method = L"OPTIONS";
    request.Execute(server.Url(L"/raw"));
    EXPECT_EQ(request.status, 200u);
    ASSERT_EQ(server.Finish().size(), 1u);
    EXPECT_EQ(server.Finish()[0], "OPTIONS /raw HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
}

TEST(HttpWire, HeadRequestInAnyCaseCompletesAfterTheHead)
{
    ScriptServer server;
    server.Start({Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n", true)});
    HttpRequest request;
    request.method = L"hEaD";
    request.receiveTimeoutMs = 5000;
    uint64_t start = PerformanceMilliseconds();
    request.Execute(server.Url(L"/file"));
    EXPECT_LT(Elapsed(start), 2000);
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(request.Sink().HeadOnly(), 1);
    EXPECT_EQ(request.responseHeaders[L"Content-Length"], L"100");
    EXPECT_EQ(request.responseBody, nullptr);
    EXPECT_EQ(request.responseBodyLength, 0);
    ASSERT_EQ(server.Finish().size(), 1u);
    EXPECT_EQ(server.Finish()[0], "hEaD /file HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
}

TEST(HttpWire, HeadResponseBytesAfterTheHeadAreNotABody)
{
    ScriptServer server;
    server.Start({Send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello")});
    HttpRequest request;
    request.method = L"HEAD";
    request.outputPath = TempPath(L"vey_head_");
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(request.responseBodyLength, 0);
    EXPECT_EQ(FileSize(request.outputPath), -1);
}

TEST(HttpWire, ContentLengthZeroCompletesRightAfterTheHead)
{
    ScriptServer server;
    server.Start({Send("HTTP/1.1 204 No Content\r\nContent-Length: 0\r\n\r\n", true)});
    HttpRequest request;
    request.receiveTimeoutMs = 5000;
    uint64_t start = PerformanceMilliseconds();
    request.Execute(server.Url(L"/"));
    EXPECT_LT(Elapsed(start), 2000);
    EXPECT_EQ(request.status, 204u);
    EXPECT_EQ(request.responseBody, nullptr);
    EXPECT_EQ(request.responseBodyLength, 0);
}

TEST(HttpWire, BytesBeyondTheAnnouncedLengthAreIgnored)
{
    ScriptServer server;
    server.Start({Send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n1234567")});
    HttpRequest request;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(Body(request), "12345");
}

TEST(HttpWire, HeadSplitOverPacketsAndTheBlankLineSplitAcrossTwoReads)
{
    ScriptServer server;
    Script script;
    for (const char* piece : {"HTT", "P/1.1 2", "00 OK\r\nContent-Le", "ngth: 6\r\nX-A: 1\r\n\r", "\nab", "cd", "ef"})
        script.chunks.push_back(Chunk{piece, 60});
    server.Start({script});
    HttpRequest request;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(request.responseHeaders[L"x-a"], L"1");
    EXPECT_EQ(Body(request), "abcdef");
}

TEST(HttpWire, NewlineOnlyHeadNeverCompletes)
{
    ScriptServer server;
    server.Start({Send("HTTP/1.1 200 OK\nContent-Length: 0\n\n", true)});
    HttpRequest request;
    request.receiveTimeoutMs = 300;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 0u);
    EXPECT_TRUE(request.responseHeaders.empty());
}

TEST(HttpWire, HeadLargerThanTheBufferNeverCompletes)
{
    ScriptServer server;
    std::string head = "HTTP/1.1 200 OK\r\nX-Big: " + std::string(40000, 'b') + "\r\nContent-Length: 0\r\n\r\n";
    server.Start({Send(head, true)});
    HttpRequest request;
    request.receiveTimeoutMs = 5000;
    uint64_t start = PerformanceMilliseconds();
    request.Execute(server.Url(L"/"));
    EXPECT_LT(Elapsed(start), 2000);  // a full buffer ends the transfer at once
    EXPECT_EQ(request.status, 0u);
}

TEST(HttpWire, WithoutContentLengthThePeerClosingLeavesNoResults)
{
    ScriptServer server;
    server.Start({Send("HTTP/1.1 200 OK\r\nX-A: 1\r\n\r\nbody bytes")});
    HttpRequest request;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 0u);
    EXPECT_TRUE(request.responseHeaders.empty());
    EXPECT_EQ(request.responseBody, nullptr);
    EXPECT_EQ(request.responseBodyLength, 0);
}

TEST(HttpWire, PeerClosingBeforeTheBodyEndsLeavesNoResults)
{
    ScriptServer server;
    server.Start({Send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc")});
    HttpRequest request;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 0u);
    EXPECT_EQ(request.responseBody, nullptr);
}

TEST(HttpWire, SilentServerEndsAfterTheReceiveTimeout)
{
    ScriptServer server;
    server.Start({Send("", true)});
    HttpRequest request;
    request.receiveTimeoutMs = 300;
    uint64_t start = PerformanceMilliseconds();
    request.Execute(server.Url(L"/"));
    int64_t elapsed = Elapsed(start);
    EXPECT_EQ(request.status, 0u);
    EXPECT_GE(elapsed, 280);
    EXPECT_LT(elapsed, 2000);
}

TEST(HttpWire, SilenceInTheMiddleOfTheBodyEndsAfterTheReceiveTimeout)
{
    ScriptServer server;
    Script script;
    script.chunks.push_back(Chunk{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc", 200});
    script.chunks.push_back(Chunk{"def", 0});
    script.hold = true;
    server.Start({script});
    HttpRequest request;
    request.receiveTimeoutMs = 400;
    uint64_t start = PerformanceMilliseconds();
    request.Execute(server.Url(L"/"));
    int64_t elapsed = Elapsed(start);
    EXPECT_EQ(request.status, 0u);
    EXPECT_GE(elapsed, 550);  // the 200 ms pause did not end it, the later 400 ms silence did
    EXPECT_LT(elapsed, 2500);
}

TEST(HttpWire, RefusedConnectEndsWithStatusZero)
{
    // A bound socket that does not listen keeps the port taken and refuses connections.
    SOCKET closed = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(closed, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    int length = sizeof(address);
    getsockname(closed, reinterpret_cast<sockaddr*>(&address), &length);

    HttpRequest request;
    request.connectTimeoutMs = 5000;
    uint64_t start = PerformanceMilliseconds();
    request.Execute(L"http://127.0.0.1:" + std::to_wstring(ntohs(address.sin_port)) + L"/");
    EXPECT_LT(Elapsed(start), 2000);
    EXPECT_EQ(request.status, 0u);
    closesocket(closed);
}

TEST(HttpWire, UnansweredConnectEndsAfterTheConnectTimeout)
{
    // A listener with a backlog of 1 that never accepts: once its queue is full, further
    // connection attempts on loopback get no answer and stay pending.
    SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    int length = sizeof(address);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);

    std::vector<SOCKET> fillers;
    bool full = false;
    while (!full && fillers.size() < 16) {
        SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        u_long nonBlocking = 1;
        ioctlsocket(s, FIONBIO, &nonBlocking);
        connect(s, reinterpret_cast<sockaddr*>(&address), sizeof(address));
        fillers.push_back(s);
        fd_set writable;
        FD_ZERO(&writable);
        FD_SET(s, &writable);
        timeval wait{0, 300000};
        full = select(0, nullptr, &writable, nullptr, &wait) == 0;
    }
    ASSERT_TRUE(full) << "the backlog never filled";

    HttpRequest request;
    request.connectTimeoutMs = 600;
    uint64_t start = PerformanceMilliseconds();
    request.Execute(L"http://127.0.0.1:" + std::to_wstring(ntohs(address.sin_port)) + L"/");
    int64_t elapsed = Elapsed(start);
    EXPECT_EQ(request.status, 0u);
    EXPECT_GE(elapsed, 580);
    EXPECT_LT(elapsed, 3000);

    for (SOCKET s : fillers)
        closesocket(s);
    closesocket(listener);
}

TEST(HttpWire, IPv6OnlyHostIsReachedOverIPv6)
{
    FakeResolver resolver;
    ASSERT_TRUE(resolver.Active());
    ScriptServer server(AF_INET6);
    server.Start({Send(Ok("six"))});
    HttpRequest request;
    request.Execute(server.Url(L"/v6", L"v6only.test"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(Body(request), "six");
    EXPECT_EQ(request.Connection().AddressLength(), 28);
    EXPECT_EQ(request.Connection().Address()->sa_family, AF_INET6);
    ASSERT_EQ(server.Finish().size(), 1u);
    EXPECT_EQ(server.Finish()[0], "GET /v6 HTTP/1.1\r\nHost: v6only.test\r\nConnection: close\r\n\r\n");
}

TEST(HttpWire, FirstAddressOfTheResolverIsUsed)
{
    FakeResolver resolver;
    ASSERT_TRUE(resolver.Active());
    {
        ScriptServer server(AF_INET6);  // nothing listens on 127.0.0.1 at this port
        server.Start({Send(Ok("v6"))});
        HttpRequest request;
        request.Execute(server.Url(L"/", L"v6first.test"));
        EXPECT_EQ(request.status, 200u);
        EXPECT_EQ(Body(request), "v6");
        EXPECT_EQ(request.Connection().AddressLength(), 28);
    }
    {
        ScriptServer server(AF_INET);
        server.Start({Send(Ok("v4"))});
        HttpRequest request;
        request.Execute(server.Url(L"/", L"v4first.test"));
        EXPECT_EQ(request.status, 200u);
        EXPECT_EQ(Body(request), "v4");
        EXPECT_EQ(request.Connection().AddressLength(), 16);
    }
}

TEST(HttpWire, Found302IsFollowedAsGetWithTheSameAgentAndHeaders)
{
    long long before = PoolOutstanding();
    ScriptServer server;
    server.Start({Send(Redirect(302, server.Url(L"/next?k=v"))), Send(Ok("final"))});
    {
        HttpRequest request;
        request.userAgent = L"UA";
        request.headers[L"X-Extra"] = L"1";
        request.body = PoolAlloc(4);
        std::memcpy(request.body, "data", 4);
        request.bodyLength = 4;
        request.ownsBody = 1;
        request.contentType = L"text/plain";
        request.Execute(server.Url(L"/start"));
        EXPECT_EQ(request.status, 200u);
        EXPECT_EQ(Body(request), "final");
        EXPECT_EQ(request.responseHeaders.count(L"location"), 0u);
        EXPECT_EQ(request.url.pathAndQuery, L"/start");
        EXPECT_EQ(request.Target().pathAndQuery, L"/next?k=v");
        EXPECT_EQ(request.body, nullptr);
    }
    const auto& requests = server.Finish();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0],
              "POST /start HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\nUser-Agent: UA\r\nContent-Length: 4\r\n"
              "Content-Type: text/plain\r\nX-Extra: 1\r\n\r\ndata");
    EXPECT_EQ(requests[1], "GET /next?k=v HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\nUser-Agent: UA\r\nX-Extra: 1\r\n\r\n");
    EXPECT_EQ(PoolOutstanding(), before);
}

TEST(HttpWire, Moved301ToHttpIsFollowedThroughAChain)
{
    ScriptServer server;
    server.Start({Send(Redirect(301, server.Url(L"/b"))), Send(Redirect(302, server.Url(L"/c"))), Send(Ok("c"))});
    HttpRequest request;
    request.Execute(server.Url(L"/a"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(Body(request), "c");
    EXPECT_EQ(server.Finish().size(), 3u);
}

TEST(HttpWire, RedirectLimitEndsTheChainWithStatusZero)
{
    ScriptServer server;
    std::vector<Script> scripts;
    for (int i = 0; i < 3; ++i)
        scripts.push_back(Send(Redirect(302, server.Url(L"/again"))));
    server.Start(scripts);
    HttpRequest request;
    request.redirectLimit = 2;
    request.Execute(server.Url(L"/a"));
    EXPECT_EQ(request.status, 0u);
    EXPECT_TRUE(request.responseHeaders.empty());
    EXPECT_EQ(server.Finish().size(), 3u);
    EXPECT_FALSE(server.HasExtraConnection());
}

TEST(HttpWire, BodyLimitRefusesALongerOrUnannouncedBodyAtTheHead)
{
    for (const std::string& answer : {Ok("12345"), std::string("HTTP/1.1 200 OK\r\n\r\n12345")}) {
        ScriptServer server;
        server.Start({Send(answer)});
        HttpRequest request;
        request.bodyLimit = 4;
        request.Execute(server.Url(L"/a"));
        EXPECT_EQ(request.status, 0u);
        EXPECT_EQ(request.Sink().received, 0);
        server.Finish();
    }
    ScriptServer server;
    server.Start({Send(Ok("1234"))});
    HttpRequest request;
    request.bodyLimit = 4;
    request.Execute(server.Url(L"/a"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(Body(request), "1234");
    server.Finish();
}

TEST(HttpWire, Moved301ToHttpsIsNotFollowed)
{
    ScriptServer server;
    server.Start({Send(Redirect(301, L"https://127.0.0.1:" + std::to_wstring(server.Port()) + L"/secure"))});
    HttpRequest request;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 301u);
    EXPECT_EQ(request.responseHeaders[L"LOCATION"], L"https://127.0.0.1:" + std::to_wstring(server.Port()) + L"/secure");
    EXPECT_EQ(server.Finish().size(), 1u);
    EXPECT_FALSE(server.HasExtraConnection());
}

TEST(HttpWire, SeeOther303AndTemporary307AreNotFollowed)
{
    for (int code : {303, 307}) {
        ScriptServer server;
        server.Start({Send(Redirect(code, server.Url(L"/next")))});
        HttpRequest request;
        request.Execute(server.Url(L"/"));
        EXPECT_EQ(request.status, static_cast<uint32_t>(code));
        EXPECT_EQ(server.Finish().size(), 1u);
        EXPECT_FALSE(server.HasExtraConnection()) << code;
    }
}

TEST(HttpWire, NoRedirectKeepsThe302)
{
    ScriptServer server;
    server.Start({Send(Redirect(302, server.Url(L"/next")))});
    HttpRequest request;
    request.noRedirect = 1;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 302u);
    EXPECT_EQ(server.Finish().size(), 1u);
    EXPECT_FALSE(server.HasExtraConnection());
}

TEST(HttpWire, RelativeLocationIsNotFollowed)
{
    ScriptServer server;
    server.Start({Send(Redirect(302, L"/elsewhere"))});
    HttpRequest request;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 302u);
    EXPECT_EQ(server.Finish().size(), 1u);
}

TEST(HttpWire, FailedRedirectTargetClearsTheRedirectResponse)
{
    ScriptServer server;
    server.Start({Send(Redirect(302, server.Url(L"/gone"))), Send("")});
    HttpRequest request;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 0u);
    EXPECT_TRUE(request.responseHeaders.empty());
    EXPECT_EQ(server.Finish().size(), 2u);
}

TEST(HttpWire, EncodingsOnTheWire)
{
    {
        ScriptServer server;
        server.Start({Send(Ok("\x1f\x8b raw", "Content-Encoding: gzip\r\n"))});
        HttpRequest request;
        request.Execute(server.Url(L"/"));
        EXPECT_EQ(request.status, 200u);
        EXPECT_EQ(Body(request), "\x1f\x8b raw");
    }
    {
        ScriptServer server;
        server.Start({Send(Ok("x", "Content-Encoding: DEFLATE\r\n"))});
        HttpRequest request;
        request.Execute(server.Url(L"/"));
        EXPECT_EQ(request.status, 0u);
    }
    {
        ScriptServer server;
        server.Start({Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n\r\n")});
        HttpRequest request;
        request.Execute(server.Url(L"/"));
        EXPECT_EQ(request.status, 0u);
    }
}

TEST(HttpWire, ResultsOfTheLastRunAreClearedByTheNext)
{
    ScriptServer server;
    server.Start({Send(Ok("first")), Send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart")});
    HttpRequest request;
    request.Execute(server.Url(L"/1"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(Body(request), "first");
    request.Execute(server.Url(L"/2"));
    EXPECT_EQ(request.status, 0u);
    EXPECT_EQ(request.responseBody, nullptr);
    EXPECT_EQ(request.responseBodyLength, 0);
    EXPECT_TRUE(request.responseHeaders.empty());
}

TEST(HttpWire, ExecuteAgainWithItsOwnUrl)
{
    ScriptServer server;
    server.Start({Send(Ok("one")), Send(Ok("two"))});
    HttpRequest request;
    request.Execute(server.Url(L"/same?k=v"));
    EXPECT_EQ(Body(request), "one");
    request.Execute(request.url.url);
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(Body(request), "two");
    const auto& requests = server.Finish();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0], requests[1]);
}

TEST(HttpWire, BodyToFileIsWrittenExactly)
{
    std::string body = RandomBytes(1024 * 1024 + 123, 7);
    std::wstring path = TempPath(L"vey_body_");
    ScriptServer server;
    server.Start({Send(Ok(body))});
    {
        HttpRequest request;
        request.outputPath = path;
        request.Execute(server.Url(L"/file.bin"));
        EXPECT_EQ(request.status, 200u);
        EXPECT_EQ(request.responseBody, nullptr);
        EXPECT_EQ(request.responseBodyLength, static_cast<int64_t>(body.size()));
        EXPECT_FALSE(request.Sink().File().IsOpen());
    }
    EXPECT_EQ(ReadFile(path), body);
    EXPECT_TRUE(DeleteFileW(path.c_str()));
}

TEST(HttpWire, BodyToFileAfterAPauseAndTheHandleIsClosed)
{
    std::string body = RandomBytes(3 * 32768 + 5, 11);
    std::wstring path = TempPath(L"vey_file_");
    ScriptServer server;
    std::string response = Ok(body);
    Script script;
    script.chunks.push_back(Chunk{response.substr(0, 100), 30});
    script.chunks.push_back(Chunk{response.substr(100), 0});
    server.Start({script});
    HttpRequest request;
    request.outputPath = path;
    request.Execute(server.Url(L"/f"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_FALSE(request.Sink().File().IsOpen());
    EXPECT_EQ(ReadFile(path), body);
    EXPECT_TRUE(DeleteFileW(path.c_str()));  // closed before Execute returned
}

TEST(HttpWire, RedirectBodyInTheOutputFileIsReplacedByTheFinalBody)
{
    std::wstring path = TempPath(L"vey_redirect_");
    ScriptServer server;
    std::string moved = "HTTP/1.1 302 Found\r\nLocation: " + WideToUtf8(server.Url(L"/final")) +
                        "\r\nContent-Length: 26\r\n\r\nabcdefghijklmnopqrstuvwxyz";
    server.Start({Send(moved), Send(Ok("final"))});
    HttpRequest request;
    request.outputPath = path;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(ReadFile(path), "final");
    DeleteFileW(path.c_str());
}

TEST(HttpWire, EmptyBodyToFileCreatesAnEmptyFile)
{
    std::wstring path = TempPath(L"vey_empty_");
    ScriptServer server;
    server.Start({Send(Ok(""))});
    HttpRequest request;
    request.outputPath = path;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(FileSize(path), 0);
    DeleteFileW(path.c_str());
}

TEST(HttpWire, OutputFileThatCannotBeOpenedEndsWithStatusZero)
{
    ScriptServer server;
    server.Start({Send(Ok("abc"))});
    HttpRequest request;
    request.outputPath = TempPath(L"vey_no_dir_") + L"\\sub\\out.bin";
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 0u);
}

TEST(HttpWire, RateLimitHoldsNearTheLimit)
{
    // The meter admits up to three seconds' worth at once and then as much as slides out of its
    // 3 s window, so a 3 s window in the middle of the transfer sees about the limit.
    const int64_t total = 240000;
    std::string body = RandomBytes(static_cast<size_t>(total), 3);
    std::wstring path = TempPath(L"vey_rate_");
    ScriptServer server;
    server.Start({Send(Ok(body))});

    std::atomic<bool> done{false};
    std::vector<std::pair<int64_t, int64_t>> samples;  // (ms since start, file size)
    uint64_t start = PerformanceMilliseconds();
    std::thread watcher([&] {
        while (!done) {
            samples.emplace_back(Elapsed(start), FileSize(path));
            Sleep(20);
        }
    });
    HttpRequest request;
    request.rateLimit = 30000;
    request.outputPath = path;
    request.Execute(server.Url(L"/slow"));
    int64_t elapsed = Elapsed(start);
    done = true;
    watcher.join();

    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(ReadFile(path), body);
    EXPECT_GE(elapsed, 5000);  // unlimited, this takes a few milliseconds

    int64_t first = -1;
    for (const auto& sample : samples) {
        if (sample.second > 0) {
            first = sample.first;
            break;
        }
    }
    ASSERT_GE(first, 0);
    auto sizeAt = [&](int64_t ms) {
        int64_t size = 0;
        for (const auto& sample : samples) {
            if (sample.first <= ms && sample.second > 0)
                size = sample.second;
        }
        return size;
    };
    int64_t rate = (sizeAt(first + 4500) - sizeAt(first + 1500)) / 3;
    std::printf("rate over the window: %lld B/s, whole transfer %lld ms\n", static_cast<long long>(rate),
                static_cast<long long>(elapsed));
    EXPECT_GE(rate, 20000);
    EXPECT_LE(rate, 40000);
    DeleteFileW(path.c_str());
}

TEST(HttpWire, RandomlyCutResponsesArriveWhole)
{
    std::mt19937 random(20240611);
    std::printf("seed 20240611\n");
    for (int round = 0; round < 30; ++round) {
        std::string body = RandomBytes(random() % 70000, random());
        std::string response = Ok(body, "X-Round: " + std::to_string(round) + "\r\n");
        Script script;
        size_t at = 0;
        while (at < response.size()) {
            size_t piece = 1 + random() % (random() % 2 ? 16 : 9000);
            script.chunks.push_back(Chunk{response.substr(at, piece), static_cast<int>(random() % 3)});
            at += piece;
        }
        ScriptServer server;
        server.Start({script});
        HttpRequest request;
        request.Execute(server.Url(L"/r"));
        ASSERT_EQ(request.status, 200u) << round;
        EXPECT_EQ(request.responseHeaders[L"x-round"], std::to_wstring(round));
        EXPECT_EQ(Body(request), body) << round;
    }
}
