// The pool for the native build: the same 20-byte header with the class byte before the payload
// and the payload 16-byte aligned, each block straight from the heap, so that the sanitizers see
// every block's life.
#include "runtime/pool.h"
#include "runtime/fatal.h"

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<long long> outstanding{0};
// The heap's 16-byte alignment puts the payload this far into the allocation.
constexpr size_t kPayloadOffset = 32;

}  // namespace

void PoolInit() {}

void* PoolAlloc(unsigned sizeClass)
{
    if (sizeClass >= kPoolClassCount)
        FatalError(kFatalPoolClass);
    auto* raw = static_cast<unsigned char*>(std::malloc(kPayloadOffset + (size_t(1) << sizeClass)));
    if (!raw)
        FatalError(kFatalOutOfMemory);
    unsigned char* payload = raw + kPayloadOffset;
    payload[-1] = static_cast<unsigned char>(sizeClass);
    ++outstanding;
    return payload;
}

void PoolFree(void* payload)
{
    if (!payload)
        return;
    --outstanding;
    std::free(static_cast<unsigned char*>(payload) - kPayloadOffset);
}

void PoolDrain() {}

long long PoolOutstanding()
{
    return outstanding.load();
}
