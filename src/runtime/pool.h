// Size-class pool: small records are recycled through one lock-free free list per
// power-of-two class, so hot paths neither lock nor return to the heap after warm-up.
#pragma once
#include <cstddef>
#include <cstdint>
#include <new>

// Bytes in front of every payload: the free-list link first, the class number last.
constexpr size_t kPoolHeaderSize = 20;
constexpr unsigned kPoolClassCount = 32;

// Sets up the 32 free lists; must run before the first allocation.
void PoolInit();
// Returns a payload of 2^sizeClass bytes; ends the process (kFatalOutOfMemory) if the heap is exhausted.
void* PoolAlloc(unsigned sizeClass);
// Puts a payload back on its class's free list; null is ignored.
void PoolFree(void* payload);
// Returns every free block of every class to the heap (tear-down).
void PoolDrain();
// The smallest class whose payload holds `bytes` (at least class 3); the same in every build,
// the fuzz build's stand-in pool included.
constexpr unsigned PoolClassFor(uint64_t bytes)
{
    unsigned sizeClass = 3;
    while (sizeClass < 64 && (uint64_t(1) << sizeClass) < bytes)
        ++sizeClass;
    return sizeClass;
}
// Payloads handed out and not yet given back, over all classes.
long long PoolOutstanding();

// A singly linked chain of pooled records whose second pointer-sized word links to the next one.
struct PoolChain {
    void* head = nullptr;
    void* tail = nullptr;
    size_t count = 0;
};
// Releases every record of the chain to its own class and clears the chain.
void PoolFreeChain(PoolChain& chain);

// Typed helpers for pooled records: construct in a pooled block of the record's size, destroy and release.
template <typename T, typename... Args>
T* PoolNew(Args&&... args)
{
    void* block = PoolAlloc(PoolClassFor(sizeof(T)));
    return new (block) T(static_cast<Args&&>(args)...);
}
template <typename T>
void PoolDelete(T* record)
{
    if (record) {
        record->~T();
        PoolFree(record);
    }
}
