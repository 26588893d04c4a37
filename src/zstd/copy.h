// Copies of a block's literals and matches in whole 16-byte chunks, which may write up to 15
// bytes past their end into the slack behind the block, and a cache hint for a match's source.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__) || defined(_M_X64)
#include <xmmintrin.h>
#endif

// Asks for the cache line at `address` (any value: a hint never faults).
inline void PrefetchLine(uintptr_t address)
{
#if defined(__SSE2__) || defined(_M_X64)
    _mm_prefetch(reinterpret_cast<const char*>(address), _MM_HINT_T0);
#else
    (void)address;
#endif
}

// Copies whole 16-byte chunks: may write up to 15 bytes past `length`.
inline void WildCopy16(uint8_t* out, const uint8_t* from, size_t length)
{
    uint8_t* end = out + length;
    do {
        std::memcpy(out, from, 16);
        out += 16;
        from += 16;
    } while (out < end);
}

// Copies a match whose source lies `offset` bytes back in the same buffer; may write up to 15
// bytes past `length`. A short offset repeats a pattern: once its first 16 bytes are out, copies
// from a multiple of the offset at least 16 back move 16 bytes at a time without overlap.
inline void CopyNear(uint8_t* out, size_t offset, size_t length)
{
    const uint8_t* from = out - offset;
    if (offset >= 16) {
        WildCopy16(out, from, length);
        return;
    }
    if (offset >= 8) {
        std::memcpy(out, from, 8);
        std::memcpy(out + 8, from + 8, 8);
    } else {
        for (int i = 0; i < 16; ++i)
            out[i] = from[i];
    }
    if (length <= 16)
        return;
    // The smallest multiple of each offset below 16 that is at least 16 (a table, not a division).
    static constexpr uint8_t kStep[16] = {0, 16, 16, 18, 16, 20, 18, 21, 16, 18, 20, 22, 24, 26, 28, 30};
    size_t step = kStep[offset];
    uint8_t* end = out + length;
    out += 16;
    do {
        std::memcpy(out, out - step, 16);
        out += 16;
    } while (out < end);
}
