// wSocketUdp on loopback only: datagrams with their senders, receives posted again after
// errors that leave the socket usable, closing with requests in flight, and failed opens.
// Every socket is bound to 127.0.0.1 and sends unicast to 127.0.0.1.
#include <gtest/gtest.h>
#include "runtime/io_request.h"
#include "runtime/iocp.h"
#include "runtime/pool.h"
#include "discovery/socket.h"
#include "support/patience.h"

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace {

const uint32_t kLoopback = htonl(INADDR_LOOPBACK);

struct Datagram {
    std::string bytes;
    sockaddr_in from;
    uint32_t error;
};

// Records what arrives; the test thread waits on `arrived`.
class Recorder : public wSocketUdp {
public:
    Recorder() { arrived = CreateEventW(nullptr, FALSE, FALSE, nullptr); }
    ~Recorder() override
    {
        CloseAndWait();
        CloseHandle(arrived);
    }

    void OnReceive(IoRequest* request) override
    {
        std::lock_guard<std::mutex> hold(lock);
        Datagram datagram{std::string(static_cast<const char*>(request->buffer), request->transferred), {},
                          request->error};
        memcpy(&datagram.from, request->address, sizeof(datagram.from));
        received.push_back(datagram);
        SetEvent(arrived);
    }
    void OnSent(IoRequest* request) override
    {
        sentBytes += request->transferred;
        ++sent;
    }
    void OnClosed() override { ++closed; }

    // Waits until `count` datagrams have arrived.
    bool WaitFor(size_t count)
    {
        for (DWORD start = GetTickCount();; WaitForSingleObject(arrived, 10)) {
            {
                std::lock_guard<std::mutex> hold(lock);
                if (received.size() >= count)
                    return true;
            }
            if (GetTickCount() - start > PatienceMs())
                return false;
        }
    }
    std::vector<Datagram> Received()
    {
        std::lock_guard<std::mutex> hold(lock);
        return received;
    }
    bool WaitReleased()
    {
        return WaitUntil([this] { return released != 0; });
    }
    uint32_t Outstanding() const { return outstanding; }
    // Hands the socket a finished receive as the port would, with the given error.
    void CompleteFakeReceive(uint32_t error, char* buffer, uint32_t length)
    {
        ASSERT_TRUE(AddOutstanding());
        IoRequest* request = NewIoRequest();
        request->kind = kIoReceiveFrom;
        request->owner = this;
        request->refCount = 1;
        request->buffer = buffer;
        request->length = length;
        request->error = error;
        OnCompletion(request);
    }

    std::atomic<int> sent{0}, closed{0};
    std::atomic<uint32_t> sentBytes{0};

private:
    std::mutex lock;
    std::vector<Datagram> received;
    HANDLE arrived;
};

// A port on 127.0.0.1 that nothing was bound to a moment ago. The port is free again once this
// returns, so a second call may give the same one: each test binds a port before it asks for the
// next.
uint16_t FreeUdpPort()
{
    SOCKET probe = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = kLoopback;
    bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    int length = sizeof(address);
    getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    closesocket(probe);
    return ntohs(address.sin_port);
}

sockaddr_in LoopbackAt(uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = kLoopback;
    return address;
}

class UdpSocketTest : public testing::Test {
protected:
    void SetUp() override
    {
        WSADATA data;
        WSAStartup(MAKEWORD(2, 2), &data);
        IocpStart();
        poolBefore = PoolOutstanding() - IocpWorkerCount();
    }
    void TearDown() override
    {
        IocpShutdown();
        WSACleanup();
    }
    long long poolBefore = 0;
};

}  // namespace

TEST_F(UdpSocketTest, DatagramArrivesWithItsSender)
{
    Recorder a, b;
    uint16_t portA = FreeUdpPort();
    ASSERT_EQ(a.Open(kLoopback, portA, 1, 2048), 0u);
    uint16_t portB = FreeUdpPort();
    ASSERT_EQ(b.Open(kLoopback, portB, 1, 2048), 0u);
    EXPECT_EQ(a.LocalAddress().sin_port, htons(portA));
    EXPECT_EQ(a.LocalAddress().sin_addr.s_addr, kLoopback);

    a.SendTo("hello", 5, LoopbackAt(portB));
    ASSERT_TRUE(b.WaitFor(1));
    std::vector<Datagram> got = b.Received();
    EXPECT_EQ(got[0].bytes, "hello");
    EXPECT_EQ(got[0].error, 0u);
    EXPECT_EQ(got[0].from.sin_family, AF_INET);
    EXPECT_EQ(got[0].from.sin_addr.s_addr, kLoopback);
    EXPECT_EQ(ntohs(got[0].from.sin_port), portA);
    WaitUntil([&] { return a.sent != 0; });
    EXPECT_EQ(a.sent, 1);
    EXPECT_EQ(a.sentBytes, 5u);
    EXPECT_TRUE(a.Received().empty());
}

TEST_F(UdpSocketTest, OneReceiveIsPostedAgainForEveryDatagram)
{
    Recorder a, b;
    uint16_t portB = FreeUdpPort();
    ASSERT_EQ(b.Open(kLoopback, portB, 1, 2048), 0u);
    ASSERT_EQ(a.Open(kLoopback, FreeUdpPort(), 1, 2048), 0u);
    for (int i = 0; i < 40; ++i) {
        std::string text = "datagram " + std::to_string(i);
        a.SendTo(text.data(), static_cast<uint32_t>(text.size()), LoopbackAt(portB));
    }
    ASSERT_TRUE(b.WaitFor(40));
    std::vector<Datagram> got = b.Received();
    for (int i = 0; i < 40; ++i)
        EXPECT_EQ(got[i].bytes, "datagram " + std::to_string(i));
    // The one receive and nothing else is in flight.
    EXPECT_EQ(b.Outstanding(), 1u);
}

TEST_F(UdpSocketTest, SendCopiesTheBytesAndAnEmptyDatagramArrives)
{
    Recorder a, b;
    uint16_t portB = FreeUdpPort();
    ASSERT_EQ(b.Open(kLoopback, portB, 1, 2048), 0u);
    ASSERT_EQ(a.Open(kLoopback, FreeUdpPort(), 1, 2048), 0u);
    {
        std::string temporary(1500, 'x');
        a.SendTo(temporary.data(), 1500, LoopbackAt(portB));
        temporary.assign(1500, 'y');
    }
    a.SendTo("", 0, LoopbackAt(portB));
    ASSERT_TRUE(b.WaitFor(2));
    std::vector<Datagram> got = b.Received();
    EXPECT_EQ(got[0].bytes, std::string(1500, 'x'));
    EXPECT_EQ(got[1].bytes, "");
}

TEST_F(UdpSocketTest, ResetAndOtherSoftErrorsPostTheReceiveAgain)
{
    Recorder a, b;
    uint16_t portB = FreeUdpPort();
    ASSERT_EQ(b.Open(kLoopback, portB, 1, 2048), 0u);
    ASSERT_EQ(a.Open(kLoopback, FreeUdpPort(), 1, 2048), 0u);
    static char buffers[10][2048];
    const uint32_t soft[] = {0, 64, 234, 1231, 1232, 1233, 1234, 10040, 10052, 10054};
    for (int i = 0; i < 10; ++i)
        b.CompleteFakeReceive(soft[i], buffers[i], sizeof(buffers[i]));
    // Each fake completion reached OnReceive and became a real receive: eleven now wait.
    ASSERT_TRUE(b.WaitFor(10));
    std::vector<Datagram> got = b.Received();
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(got[i].error, soft[i]);
    EXPECT_EQ(b.Outstanding(), 11u);
    for (int i = 0; i < 11; ++i)
        a.SendTo("again", 5, LoopbackAt(portB));
    ASSERT_TRUE(b.WaitFor(21));
    got = b.Received();
    for (size_t i = 10; i < got.size(); ++i)
        EXPECT_EQ(got[i].bytes, "again");
    EXPECT_EQ(b.Outstanding(), 11u);
}

TEST_F(UdpSocketTest, HardReceiveErrorClosesTheSocket)
{
    Recorder b;
    ASSERT_EQ(b.Open(kLoopback, FreeUdpPort(), 1, 2048), 0u);
    static char buffer[2048];
    b.CompleteFakeReceive(ERROR_INVALID_PARAMETER, buffer, sizeof(buffer));
    // The real receive comes back aborted; then the socket is released.
    ASSERT_TRUE(b.WaitReleased());
    EXPECT_EQ(b.closed, 1);
    EXPECT_EQ(b.Outstanding(), wSocket::kClosing);
}

TEST_F(UdpSocketTest, CloseReleasesOnceTheReceivesComeBack)
{
    {
        Recorder b;
        ASSERT_EQ(b.Open(kLoopback, FreeUdpPort(), 3, 512), 0u);
        EXPECT_EQ(b.Outstanding(), 3u);
        b.Close();
        ASSERT_TRUE(b.WaitReleased());
        EXPECT_EQ(b.closed, 1);
        EXPECT_EQ(b.Outstanding(), wSocket::kClosing);
        std::vector<Datagram> aborted = b.Received();
        ASSERT_EQ(aborted.size(), 3u);
        for (const Datagram& datagram : aborted) {
            EXPECT_NE(datagram.error, 0u);
            EXPECT_EQ(datagram.bytes, "");
        }
        std::printf("receives in flight at close came back with %u\n", aborted[0].error);
        // A closed socket counts and sends nothing.
        b.SendTo("late", 4, LoopbackAt(9));
        EXPECT_EQ(b.Outstanding(), wSocket::kClosing);
        b.Close();
        EXPECT_EQ(b.closed, 1);
    }
    // Every request is back in the pool; only the records of workers added meanwhile are not.
    EXPECT_EQ(PoolOutstanding() - IocpWorkerCount(), poolBefore);
}

TEST_F(UdpSocketTest, DestroyingAnOpenSocketWaitsForItsRequests)
{
    Recorder a;
    uint16_t portB = FreeUdpPort();
    auto* b = new Recorder;
    ASSERT_EQ(b->Open(kLoopback, portB, 4, 2048), 0u);
    ASSERT_EQ(a.Open(kLoopback, FreeUdpPort(), 1, 2048), 0u);
    a.SendTo("x", 1, LoopbackAt(portB));
    ASSERT_TRUE(b->WaitFor(1));
    delete b;
    WaitUntil([&] { return a.sent != 0; });
    EXPECT_EQ(a.Outstanding(), 1u);
}

TEST_F(UdpSocketTest, FailedOpenReturnsTheErrorAndReleases)
{
    Recorder a, b;
    uint16_t port = FreeUdpPort();
    ASSERT_EQ(a.Open(kLoopback, port, 1, 2048), 0u);
    EXPECT_EQ(b.Open(kLoopback, port, 1, 2048), static_cast<uint32_t>(WSAEADDRINUSE));
    EXPECT_TRUE(b.WaitReleased());
    EXPECT_EQ(b.closed, 1);
    EXPECT_EQ(b.Outstanding(), wSocket::kClosing);
}

TEST_F(UdpSocketTest, APortIsSharedOnlyWhenEverySocketOnItAsks)
{
    // On loopback only; the same rule holds for the wildcard address beside an interface address.
    Recorder first, second, third, alone;
    uint16_t port = FreeUdpPort();
    ASSERT_EQ(first.Open(kLoopback, port, 1, 2048, true), 0u);
    EXPECT_EQ(second.Open(kLoopback, port, 1, 2048, true), 0u);
    EXPECT_NE(third.Open(kLoopback, port, 1, 2048), 0u);
    uint16_t other = FreeUdpPort();
    ASSERT_EQ(alone.Open(kLoopback, other, 1, 2048), 0u);
    Recorder late;
    EXPECT_NE(late.Open(kLoopback, other, 1, 2048, true), 0u);
}

TEST_F(UdpSocketTest, NeverOpenedSocketIsReleasedAtOnce)
{
    Recorder never;
    never.Close();
    EXPECT_TRUE(never.WaitReleased());
    EXPECT_EQ(never.closed, 1);
}
