// What the SHA-2 digests share: big-endian words, rotations, and the message buffering and
// padding around a block function `compress(state, blocks, count)`. A context has `state`,
// `length` (message bytes so far) and `buffer` (one block, holding length % block size bytes).
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(_MSC_VER)
#define VEY_HASH_INLINE __forceinline
#elif defined(__GNUC__)
#define VEY_HASH_INLINE inline __attribute__((always_inline))
#else
#define VEY_HASH_INLINE inline
#endif

VEY_HASH_INLINE uint32_t Rotr32(uint32_t x, int n)
{
    return (x >> n) | (x << (32 - n));
}

VEY_HASH_INLINE uint64_t Rotr64(uint64_t x, int n)
{
    return (x >> n) | (x << (64 - n));
}

VEY_HASH_INLINE uint32_t LoadBig32(const uint8_t* p)
{
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

VEY_HASH_INLINE uint64_t LoadBig64(const uint8_t* p)
{
    return uint64_t(LoadBig32(p)) << 32 | LoadBig32(p + 4);
}

VEY_HASH_INLINE void StoreBig32(uint8_t* p, uint32_t value)
{
    p[0] = uint8_t(value >> 24);
    p[1] = uint8_t(value >> 16);
    p[2] = uint8_t(value >> 8);
    p[3] = uint8_t(value);
}

VEY_HASH_INLINE void StoreBig64(uint8_t* p, uint64_t value)
{
    StoreBig32(p, uint32_t(value >> 32));
    StoreBig32(p + 4, uint32_t(value));
}

// Hashes whole blocks straight from the caller's memory and keeps the rest for later.
template <class Context, class Compress>
void HashBlocksUpdate(Context& context, Compress compress, const void* data, size_t size)
{
    constexpr size_t block = sizeof context.buffer;
    if (size == 0) {
        return;  // data may be null
    }
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    size_t buffered = size_t(context.length % block);
    context.length += size;

    if (buffered != 0) {
        const size_t take = size < block - buffered ? size : block - buffered;
        std::memcpy(context.buffer + buffered, bytes, take);
        bytes += take;
        size -= take;
        buffered += take;
        if (buffered < block) {
            return;
        }
        compress(context.state, context.buffer, 1);
    }
    const size_t blockCount = size / block;
    if (blockCount != 0) {
        compress(context.state, bytes, blockCount);
        bytes += blockCount * block;
        size -= blockCount * block;
    }
    if (size != 0) {
        std::memcpy(context.buffer, bytes, size);
    }
}

// Appends 0x80, zeros, and the message length in bits as a big-endian number of `LengthSize`
// bytes that ends the last block, and hashes what that completes.
template <size_t LengthSize, class Context, class Compress>
void HashBlocksPad(Context& context, Compress compress)
{
    constexpr size_t block = sizeof context.buffer;
    size_t buffered = size_t(context.length % block);
    context.buffer[buffered++] = 0x80;
    if (buffered > block - LengthSize) {
        std::memset(context.buffer + buffered, 0, block - buffered);
        compress(context.state, context.buffer, 1);
        buffered = 0;
    }
    // Lengths are counted in 64 bits, so only the last 8 bytes of the length field can be non-zero.
    std::memset(context.buffer + buffered, 0, block - 8 - buffered);
    StoreBig64(context.buffer + block - 8, context.length << 3);
    compress(context.state, context.buffer, 1);
}
