// The owners of handles, sockets and searches, and the lock guards: each value is closed exactly
// once, moves hand it on, Release gives it up, the guards exclude what they should, and a
// condition variable wakes its waiter.
#include <gtest/gtest.h>
#include "runtime/handles.h"
#include "runtime/text.h"

#include <winsock2.h>
#include <windows.h>
#include <thread>
#include <vector>

namespace {

bool IsOpenHandle(HANDLE handle)
{
    DWORD flags = 0;
    return GetHandleInformation(handle, &flags) != FALSE;
}

HANDLE NewEvent() { return CreateEventW(nullptr, TRUE, FALSE, nullptr); }

constexpr int kThreads = 4, kAdds = 100000;

// Adds to a plain counter from several threads at once, each addition inside `guarded`; the
// count comes out whole only when the guard lets one thread in at a time.
template <typename Guarded>
int CountUnder(Guarded guarded)
{
    volatile int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < kAdds; ++n)
                guarded([&] { counter = counter + 1; });
        });
    for (std::thread& thread : threads)
        thread.join();
    return counter;
}

}  // namespace

TEST(UniqueHandle, ClosesWhenItEnds)
{
    HANDLE raw = NewEvent();
    {
        UniqueHandle event(raw);
        EXPECT_TRUE(event);
        EXPECT_EQ(event.Get(), raw);
        EXPECT_TRUE(IsOpenHandle(raw));
    }
    EXPECT_FALSE(IsOpenHandle(raw));
}

TEST(UniqueHandle, NullAndInvalidMeanNone)
{
    UniqueHandle empty;
    EXPECT_FALSE(empty);
    UniqueHandle null(nullptr);
    EXPECT_FALSE(null);
    UniqueHandle invalid(INVALID_HANDLE_VALUE);
    EXPECT_FALSE(invalid);
}

TEST(UniqueHandle, MoveHandsOnAndResetClosesTheOld)
{
    HANDLE first = NewEvent(), second = NewEvent();
    UniqueHandle owner(first);
    UniqueHandle taker(std::move(owner));
    EXPECT_FALSE(owner);
    EXPECT_EQ(taker.Get(), first);
    owner = std::move(taker);
    EXPECT_EQ(owner.Get(), first);
    EXPECT_TRUE(IsOpenHandle(first));
    owner.Reset(second);
    EXPECT_FALSE(IsOpenHandle(first));
    EXPECT_TRUE(IsOpenHandle(second));
    owner.Reset();
    EXPECT_FALSE(owner);
    EXPECT_FALSE(IsOpenHandle(second));
}

TEST(UniqueHandle, ReleaseGivesUpWithoutClosing)
{
    HANDLE raw = NewEvent();
    {
        UniqueHandle event(raw);
        EXPECT_EQ(event.Release(), raw);
        EXPECT_FALSE(event);
    }
    EXPECT_TRUE(IsOpenHandle(raw));
    UniqueHandle(raw).Reset();
    EXPECT_FALSE(IsOpenHandle(raw));
}

TEST(UniqueSocket, ClosesTheSocket)
{
    WSADATA data;
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    SOCKET raw = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    ASSERT_NE(raw, INVALID_SOCKET);
    int type = 0, length = sizeof(type);
    {
        UniqueSocket owned(raw);
        EXPECT_TRUE(owned);
        EXPECT_EQ(getsockopt(raw, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &length), 0);
    }
    EXPECT_EQ(getsockopt(raw, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &length), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOTSOCK);
    EXPECT_FALSE(UniqueSocket(INVALID_SOCKET));
    WSACleanup();
}

TEST(UniqueFind, ClosesTheSearch)
{
    WIN32_FIND_DATAW found;
    std::wstring pattern = GetDirectoryPart(GetModulePath()) + L"\\*";
    HANDLE raw = FindFirstFileW(pattern.c_str(), &found);
    {
        UniqueFind search(raw);
        ASSERT_TRUE(search);
        EXPECT_TRUE(FindNextFileW(search.Get(), &found));
    }
    EXPECT_FALSE(FindNextFileW(raw, &found));
    EXPECT_FALSE(UniqueFind(FindFirstFileW(L"Z:\\no\\such\\folder\\*", &found)));
}

TEST(CriticalSectionLock, ExcludesOtherThreadsAndReentersOnItsOwn)
{
    CriticalSection section(0xFFFFFFFF);
    EXPECT_EQ(CountUnder([&](auto add) {
                  CriticalSectionLock held(section);
                  add();
              }),
              kThreads * kAdds);
    bool elsewhere = true;
    {
        CriticalSectionLock outer(section);
        CriticalSectionLock inner(section, CriticalSectionLock::TryOnly{});
        EXPECT_TRUE(inner.Held());
        std::thread([&] { elsewhere = CriticalSectionLock(section, CriticalSectionLock::TryOnly{}).Held(); }).join();
        EXPECT_FALSE(elsewhere);
    }
    std::thread([&] { elsewhere = CriticalSectionLock(section, CriticalSectionLock::TryOnly{}).Held(); }).join();
    EXPECT_TRUE(elsewhere);
}

TEST(SrwLock, ExclusiveExcludesAndSharedAdmitsReadersTogether)
{
    static SrwLock lock;  // constant-initialised: ready without set-up
    EXPECT_EQ(CountUnder([&](auto add) {
                  ExclusiveLock held(lock);
                  add();
              }),
              kThreads * kAdds);
    // A second reader gets in while the first still holds the lock.
    SharedLock first(lock);
    bool second = false;
    std::thread([&] {
        SharedLock reading(lock);
        second = true;
    }).join();
    EXPECT_TRUE(second);
}

TEST(ConditionVariable, AWaiterSeesEveryHandOverUnderTheLock)
{
    // Two threads hand a counter back and forth a thousand times: each waits for its turn, so a
    // lost wake-up would hang and a wait that returned without the lock would race.
    SrwLock lock;
    ConditionVariable changed;
    int turn = 0;
    constexpr int kRounds = 1000;
    auto player = [&](int parity) {
        for (int round = 0; round < kRounds; ++round) {
            {
                ExclusiveLock held(lock);
                while (turn % 2 != parity)
                    changed.Wait(lock);
                ++turn;
            }
            changed.WakeAll();
        }
    };
    std::thread odd(player, 1);
    player(0);
    odd.join();
    EXPECT_EQ(turn, 2 * kRounds);
}
