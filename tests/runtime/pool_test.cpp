// The size-class pool: reuse, headers, release of chains, and use from many threads at once.
#include <gtest/gtest.h>
#include "runtime/pool.h"

#include <atomic>
#include <thread>
#include <vector>

TEST(Pool, ReleasedBlockIsHandedOutAgain)
{
    void* first = PoolAlloc(5);
    PoolFree(first);
    void* second = PoolAlloc(5);
    EXPECT_EQ(first, second);
    PoolFree(second);
}

TEST(Pool, HeaderHoldsClassBeforePayload)
{
    for (unsigned sizeClass : {3u, 4u, 5u, 7u, 8u, 15u}) {
        auto* payload = static_cast<unsigned char*>(PoolAlloc(sizeClass));
        EXPECT_EQ(payload[-1], sizeClass);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(payload) % 16, 0u);
        memset(payload, 0xAB, size_t(1) << sizeClass);
        PoolFree(payload);
    }
}

TEST(Pool, NullIsIgnored)
{
    long long before = PoolOutstanding();
    PoolFree(nullptr);
    EXPECT_EQ(PoolOutstanding(), before);
}

TEST(Pool, ClassForSize)
{
    EXPECT_EQ(PoolClassFor(1), 3u);
    EXPECT_EQ(PoolClassFor(8), 3u);
    EXPECT_EQ(PoolClassFor(9), 4u);
    EXPECT_EQ(PoolClassFor(32768), 15u);
    EXPECT_EQ(PoolClassFor(32769), 16u);
}

TEST(Pool, BlockReleasedOnOneThreadServesAnother)
{
    void* block = nullptr;
    std::thread([&] { block = PoolAlloc(7); }).join();
    std::thread([&] { PoolFree(block); }).join();
    void* again = nullptr;
    std::thread([&] { again = PoolAlloc(7); }).join();
    EXPECT_EQ(again, block);
    PoolFree(again);
}

TEST(Pool, FreeChainReturnsEveryRecord)
{
    struct Record {
        uint64_t value;
        Record* next;
    };
    long long before = PoolOutstanding();
    PoolChain chain;
    for (int i = 0; i < 10; ++i) {
        auto* record = static_cast<Record*>(PoolAlloc(i % 2 ? 4 : 5));
        record->value = i;
        record->next = nullptr;
        if (chain.tail)
            static_cast<Record*>(chain.tail)->next = record;
        else
            chain.head = record;
        chain.tail = record;
        ++chain.count;
    }
    EXPECT_EQ(PoolOutstanding(), before + 10);
    PoolFreeChain(chain);
    EXPECT_EQ(PoolOutstanding(), before);
    EXPECT_EQ(chain.head, nullptr);
    EXPECT_EQ(chain.tail, nullptr);
    EXPECT_EQ(chain.count, 0u);
}

TEST(Pool, ManyThreadsPassBlocksAcross)
{
    // Producers allocate and stamp blocks, consumers check the stamp and free them, so every
    // block crosses threads; a block handed out twice would show a torn stamp.
    constexpr int kThreads = 4, kBlocks = 20000;
    long long before = PoolOutstanding();
    std::vector<std::atomic<uint64_t*>> slots(kThreads * kBlocks);
    std::atomic<int> errors{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kBlocks; ++i) {
                auto* block = static_cast<uint64_t*>(PoolAlloc(4));
                block[0] = block[1] = uint64_t(t) << 32 | unsigned(i);
                slots[t * kBlocks + i].store(block);
            }
        });
        threads.emplace_back([&, t] {
            int source = (t + 1) % kThreads;
            for (int i = 0; i < kBlocks; ++i) {
                uint64_t* block;
                while (!(block = slots[source * kBlocks + i].load()))
                    std::this_thread::yield();
                if (block[0] != block[1] || block[0] != (uint64_t(source) << 32 | unsigned(i)))
                    ++errors;
                PoolFree(block);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(errors.load(), 0);
    EXPECT_EQ(PoolOutstanding(), before);
}
