// HttpRequest without a server: construction, Reset, onComplete, name resolution and WaitSocket.
// Also sets up Winsock and the completion port for every test of this program.
#include <gtest/gtest.h>
#include "http/fake_resolver.h"
#include "http/resolve.h"
#include "http/request.h"
#include "runtime/iocp.h"
#include "runtime/pool.h"

#include <cstring>

namespace {

class NetworkEnvironment : public testing::Environment {
public:
    void SetUp() override
    {
        WSADATA data;
        ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
        IocpStart();
    }
    void TearDown() override
    {
        IocpShutdown();
        WSACleanup();
    }
};

auto* const environment = testing::AddGlobalTestEnvironment(new NetworkEnvironment);

int Family(const HostAddress* node)
{
    return reinterpret_cast<const sockaddr*>(node->address)->sa_family;
}

}  // namespace

TEST(HttpRequest, ConstructionDefaults)
{
    HttpRequest request;
    EXPECT_EQ(request.connectTimeoutMs, 10000u);
    EXPECT_EQ(request.receiveTimeoutMs, 1000u);
    EXPECT_EQ(request.rateSlotCount, 30u);
    EXPECT_EQ(request.rateSlotMs, 100u);
    ASSERT_NE(request.rateSlots, nullptr);
    for (uint32_t i = 0; i < request.rateSlotCount; ++i)
        EXPECT_EQ(request.rateSlots[i], 0u);
    EXPECT_EQ(request.rateLimit, 0u);
    EXPECT_EQ(request.rateActiveLimit, 0u);
    EXPECT_TRUE(request.method.empty());
    EXPECT_TRUE(request.userAgent.empty());
    EXPECT_TRUE(request.headers.empty());
    EXPECT_EQ(request.body, nullptr);
    EXPECT_EQ(request.bodyLength, 0);
    EXPECT_EQ(request.ownsBody, 0);
    EXPECT_EQ(request.sendRaw, 0);
    EXPECT_EQ(request.noRedirect, 0);
    EXPECT_EQ(request.onComplete, nullptr);
    EXPECT_EQ(request.status, 0u);
    EXPECT_EQ(request.responseBody, nullptr);
    EXPECT_EQ(request.responseBodyLength, 0);
    EXPECT_EQ(request.Connection().Socket(), static_cast<uintptr_t>(INVALID_SOCKET));
    EXPECT_FALSE(request.Sink().File().IsOpen());
}

TEST(HttpRequest, DestructionGivesEveryBlockBack)
{
    long long before = PoolOutstanding();
    {
        HttpRequest request;
        request.body = PoolAlloc(6);
        request.ownsBody = 1;
        request.responseBody = PoolAlloc(7);
        EXPECT_EQ(PoolOutstanding(), before + 3);
    }
    EXPECT_EQ(PoolOutstanding(), before);
}

TEST(HttpRequest, ResetClearsSettingsMeterAndResultsButKeepsTimeouts)
{
    long long before = PoolOutstanding();
    HttpRequest request;
    request.url.Parse(L"http://h/x");
    request.method = L"PUT";
    request.userAgent = L"agent";
    request.headers[L"X-A"] = L"1";
    request.body = PoolAlloc(5);
    request.bodyLength = 3;
    request.ownsBody = 1;
    request.contentType = L"text/plain";
    request.outputPath = L"C:\\out.bin";
    request.connectTimeoutMs = 123;
    request.receiveTimeoutMs = 456;
    for (uint32_t i = 0; i < request.rateSlotCount; ++i)
        request.rateSlots[i] = i + 1;
    request.rateSum = 465;
    request.rateSlotIndex = 7;
    request.rateSlotStart = 99;
    request.rateSlotBytes = 11;
    request.rateLimit = 30000;
    request.sendRaw = 1;
    request.noRedirect = 1;
    request.onComplete = [](HttpRequest*) {};
    request.context = &request;
    request.status = 200;
    request.responseHeaders[L"a"] = L"b";
    request.responseBody = PoolAlloc(4);
    request.responseBodyLength = 9;

    request.Reset();

    EXPECT_TRUE(request.url.url.empty());
    EXPECT_TRUE(request.url.host.empty());
    EXPECT_TRUE(request.method.empty());
    EXPECT_TRUE(request.userAgent.empty());
    EXPECT_TRUE(request.headers.empty());
    EXPECT_EQ(request.body, nullptr);
    EXPECT_EQ(request.bodyLength, 0);
    EXPECT_EQ(request.ownsBody, 0);
    EXPECT_TRUE(request.contentType.empty());
    EXPECT_TRUE(request.outputPath.empty());
    for (uint32_t i = 0; i < request.rateSlotCount; ++i)
        EXPECT_EQ(request.rateSlots[i], 0u);
    EXPECT_EQ(request.rateSum, 0u);
    EXPECT_EQ(request.rateSlotIndex, 0u);
    EXPECT_EQ(request.rateSlotStart, 0u);
    EXPECT_EQ(request.rateSlotBytes, 0u);
    EXPECT_EQ(request.rateLimit, 0u);
    EXPECT_EQ(request.sendRaw, 0);
    EXPECT_EQ(request.noRedirect, 0);
    EXPECT_EQ(request.onComplete, nullptr);
    EXPECT_EQ(request.context, nullptr);
    EXPECT_EQ(request.status, 0u);
    EXPECT_TRUE(request.responseHeaders.empty());
    EXPECT_EQ(request.responseBody, nullptr);
    EXPECT_EQ(request.responseBodyLength, 0);

    EXPECT_EQ(request.connectTimeoutMs, 123u);
    EXPECT_EQ(request.receiveTimeoutMs, 456u);
    EXPECT_EQ(request.rateSlotCount, 30u);
    EXPECT_EQ(request.rateSlotMs, 100u);
    EXPECT_EQ(PoolOutstanding(), before + 1);  // only the slot array remains
}

TEST(HttpRequest, ResetKeepsABodyTheCallerOwns)
{
    HttpRequest request;
    char bytes[4] = "abc";
    request.body = bytes;
    request.bodyLength = 3;
    request.Reset();
    EXPECT_EQ(request.body, nullptr);
    EXPECT_EQ(request.bodyLength, 0);
}

TEST(HttpRequest, OnCompleteRunsOnceForAnUnusableUrl)
{
    struct Seen {
        int calls = 0;
        uint32_t status = 1;
    } seen;
    HttpRequest request;
    request.context = &seen;
    request.onComplete = [](HttpRequest* r) {
        auto* s = static_cast<Seen*>(r->context);
        ++s->calls;
        s->status = r->status;
    };
    request.status = 200;
    request.responseBody = PoolAlloc(4);
    request.responseBodyLength = 16;
    request.responseHeaders[L"x"] = L"y";
    request.Execute(L"/only/path");
    EXPECT_EQ(seen.calls, 1);
    EXPECT_EQ(seen.status, 0u);
    EXPECT_EQ(request.status, 0u);
    EXPECT_EQ(request.responseBody, nullptr);
    EXPECT_EQ(request.responseBodyLength, 0);
    EXPECT_TRUE(request.responseHeaders.empty());
    EXPECT_EQ(request.url.url, L"/only/path");
}

TEST(HttpRequest, UnknownHostEndsWithStatusZero)
{
    FakeResolver resolver;
    ASSERT_TRUE(resolver.Active());
    int calls = 0;
    HttpRequest request;
    request.context = &calls;
    request.onComplete = [](HttpRequest* r) { ++*static_cast<int*>(r->context); };
    request.Execute(L"http://missing.test/x");
    EXPECT_EQ(request.status, 0u);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(request.Target().host, L"missing.test");
}

TEST(HttpResolveHost, NumericIPv4)
{
    long long before = PoolOutstanding();
    HostAddressList list = ResolveHost(L"127.0.0.1");
    ASSERT_GE(list.count, 1u);
    ASSERT_NE(list.head, nullptr);
    EXPECT_EQ(list.head->prev, nullptr);
    EXPECT_EQ(Family(list.head), AF_INET);
    EXPECT_EQ(list.head->length, static_cast<int32_t>(sizeof(sockaddr_in)));
    auto* v4 = reinterpret_cast<sockaddr_in*>(list.head->address);
    EXPECT_EQ(v4->sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    for (size_t i = sizeof(sockaddr_in); i < sizeof(list.head->address); ++i)
        ASSERT_EQ(list.head->address[i], 0) << i;
    FreeHostAddresses(list);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(PoolOutstanding(), before);
}

TEST(HttpResolveHost, NumericIPv6)
{
    HostAddressList list = ResolveHost(L"::1");
    ASSERT_GE(list.count, 1u);
    EXPECT_EQ(Family(list.head), AF_INET6);
    EXPECT_EQ(list.head->length, static_cast<int32_t>(sizeof(sockaddr_in6)));
    FreeHostAddresses(list);
}

TEST(HttpResolveHost, KeepsTheResolverOrderInADoublyLinkedList)
{
    FakeResolver resolver;
    ASSERT_TRUE(resolver.Active());
    HostAddressList list = ResolveHost(L"v6first.test");
    ASSERT_EQ(list.count, 2u);
    EXPECT_EQ(Family(list.head), AF_INET6);
    EXPECT_EQ(Family(list.tail), AF_INET);
    EXPECT_EQ(list.head->next, list.tail);
    EXPECT_EQ(list.tail->prev, list.head);
    EXPECT_EQ(list.tail->next, nullptr);
    FreeHostAddresses(list);
}

TEST(HttpResolveHost, FailedLookupGivesAnEmptyList)
{
    FakeResolver resolver;
    ASSERT_TRUE(resolver.Active());
    HostAddressList list = ResolveHost(L"missing.test");
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
}

TEST(HttpWaitSocket, TimeOutIsTrueWithNothingReady)
{
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(s, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    listen(s, 1);
    bool readable = true, failed = true;
    EXPECT_TRUE(WaitSocket(s, 50, &readable, nullptr, &failed));
    EXPECT_FALSE(readable);
    EXPECT_FALSE(failed);
    closesocket(s);
}

TEST(HttpWaitSocket, ReportsReadable)
{
    SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    listen(listener, 1);
    int length = sizeof(address);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    SOCKET client = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ASSERT_EQ(connect(client, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    bool readable = false;
    EXPECT_TRUE(WaitSocket(listener, 2000, &readable, nullptr, nullptr));
    EXPECT_TRUE(readable);
    closesocket(client);
    closesocket(listener);
}

TEST(HttpWaitSocket, FailsForAnInvalidSocket)
{
    bool readable = false;
    EXPECT_FALSE(WaitSocket(static_cast<uintptr_t>(INVALID_SOCKET), 10, &readable, nullptr, nullptr));
}
