// Size-class pool on the platform's interlocked singly linked lists.
//
// Block layout (20-byte header, then the payload):
//   [0, 4)    unused
//   [4, 12)   free-list link while the block lies in a free list
//   [12, 19)  unused
//   [19]      class number
//   [20, ...) payload of 2^class bytes
// Blocks are placed so that the payload is 16-byte aligned; that puts the link on the
// 16-byte boundary that the x64 list operations require.
#include "runtime/pool.h"
#include "runtime/fatal.h"

#include <windows.h>
#include <malloc.h>
#include <atomic>

namespace {

constexpr size_t kLinkOffset = 4;

alignas(16) SLIST_HEADER freeLists[kPoolClassCount];
std::atomic<long long> outstanding{0};

unsigned char* BlockOf(void* payload) { return static_cast<unsigned char*>(payload) - kPoolHeaderSize; }

}  // namespace

void PoolInit()
{
    for (auto& list : freeLists)
        InitializeSListHead(&list);
}

void* PoolAlloc(unsigned sizeClass)
{
    if (sizeClass >= kPoolClassCount)
        FatalError(kFatalPoolClass);
    unsigned char* block;
    if (auto* entry = InterlockedPopEntrySList(&freeLists[sizeClass])) {
        block = reinterpret_cast<unsigned char*>(entry) - kLinkOffset;
    } else {
        size_t bytes = kPoolHeaderSize + (size_t(1) << sizeClass);
        block = static_cast<unsigned char*>(_aligned_offset_malloc(bytes, MEMORY_ALLOCATION_ALIGNMENT, kPoolHeaderSize));
        if (!block)
            FatalError(kFatalOutOfMemory);
        block[kPoolHeaderSize - 1] = static_cast<unsigned char>(sizeClass);
    }
    outstanding.fetch_add(1, std::memory_order_relaxed);
    return block + kPoolHeaderSize;
}

void PoolFree(void* payload)
{
    if (!payload)
        return;
    unsigned char* block = BlockOf(payload);
    unsigned sizeClass = block[kPoolHeaderSize - 1];
    outstanding.fetch_sub(1, std::memory_order_relaxed);
    InterlockedPushEntrySList(&freeLists[sizeClass], reinterpret_cast<PSLIST_ENTRY>(block + kLinkOffset));
}

void PoolDrain()
{
    for (auto& list : freeLists) {
        auto* entry = InterlockedFlushSList(&list);
        while (entry) {
            auto* next = entry->Next;
            _aligned_free(reinterpret_cast<unsigned char*>(entry) - kLinkOffset);
            entry = next;
        }
    }
}

long long PoolOutstanding()
{
    return outstanding.load(std::memory_order_relaxed);
}

void PoolFreeChain(PoolChain& chain)
{
    void* record = chain.head;
    while (record) {
        void* next = static_cast<void**>(record)[1];
        PoolFree(record);
        record = next;
    }
    chain.head = nullptr;
    chain.tail = nullptr;
    chain.count = 0;
}
