// The completion port: handlers keyed by routine address, and a worker pool that grows when busy.
#include <gtest/gtest.h>
#include "runtime/io_request.h"
#include "runtime/iocp.h"
#include "runtime/pool.h"
#include "support/patience.h"

#include <atomic>

namespace {

HANDLE release;
std::atomic<int> entered{0};

unsigned long Blocking(_OVERLAPPED* overlapped)
{
    ++entered;
    WaitForSingleObject(release, INFINITE);
    PoolFree(overlapped);
    return 0;
}

std::atomic<int> followUps{0};
uint32_t lastError, lastBytes;

void FollowUp(uint32_t error, uint32_t bytes)
{
    lastError = error;
    lastBytes = bytes;
    ++followUps;
}

}  // namespace

TEST(Iocp, GrowsWhenEveryWorkerIsBusy)
{
    IocpStart();
    EXPECT_EQ(IocpWorkerCount(), 1u);
    release = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    for (int i = 0; i < 3; ++i)
        IocpPost(Blocking, static_cast<_OVERLAPPED*>(PoolAlloc(kIoRequestClass)), 0);
    WaitUntil([] { return entered == 3; });
    EXPECT_EQ(entered, 3);
    // Three handlers block; one more worker is always left waiting on the port.
    EXPECT_EQ(IocpBusyCount(), 3u);
    EXPECT_EQ(IocpWorkerCount(), 4u);
    SetEvent(release);
    WaitUntil([] { return IocpBusyCount() == 0; });
    EXPECT_EQ(IocpWorkerCount(), 4u);
    IocpShutdown();
    CloseHandle(release);
    EXPECT_EQ(IocpWorkerCount(), 0u);
}

TEST(Iocp, RequestFinishesOnceItsLastHolderIsDone)
{
    long long before = PoolOutstanding();
    IocpStart();
    IoRequest* request = NewIoRequest();
    request->refCount = 2;
    request->error = 87;
    request->followUp = FollowUp;
    request->ownership = kBufferPool;
    request->buffer = PoolAlloc(8);
    followUps = 0;
    IocpPost(CompleteIoRequest, &request->overlapped, 12);
    Sleep(50);
    EXPECT_EQ(followUps, 0);
    IocpPost(CompleteIoRequest, &request->overlapped, 12);
    WaitUntil([] { return followUps != 0; });
    EXPECT_EQ(followUps, 1);
    EXPECT_EQ(lastError, 87u);
    EXPECT_EQ(lastBytes, 12u);
    IocpShutdown();
    // The request, its buffer and the worker records are all back.
    EXPECT_EQ(PoolOutstanding(), before);
}
