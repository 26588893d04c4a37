// SHA-1: the portable block function, the incremental context and the one-shot digest.
// The block function selection and the SHA instruction path live in sha1_x86.cpp.
#include "crypto/sha1.h"

#include <cstring>
#include <utility>

#if defined(_MSC_VER)
#define VEY_SHA1_INLINE __forceinline
#elif defined(__GNUC__)
#define VEY_SHA1_INLINE inline __attribute__((always_inline))
#else
#define VEY_SHA1_INLINE inline
#endif

namespace {

VEY_SHA1_INLINE uint32_t Rotl(uint32_t x, int n)
{
    return (x << n) | (x >> (32 - n));
}

VEY_SHA1_INLINE uint32_t LoadBig32(const uint8_t* p)
{
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

VEY_SHA1_INLINE void StoreBig32(uint8_t* p, uint32_t value)
{
    p[0] = uint8_t(value >> 24);
    p[1] = uint8_t(value >> 16);
    p[2] = uint8_t(value >> 8);
    p[3] = uint8_t(value);
}

// Round `Round` of 80. The message schedule keeps only the last 16 words, in a ring.
// The caller rotates the roles of a..e between calls instead of moving the values.
template <int Round>
VEY_SHA1_INLINE void Step(uint32_t a, uint32_t& b, uint32_t c, uint32_t d, uint32_t& e, uint32_t (&w)[16], const uint8_t* block)
{
    uint32_t word;
    if constexpr (Round < 16) {
        word = LoadBig32(block + 4 * Round);
    } else {
        // W[t-3] ^ W[t-8] ^ W[t-14] ^ W[t-16], rotated by one.
        word = Rotl(w[(Round + 13) & 15] ^ w[(Round + 8) & 15] ^ w[(Round + 2) & 15] ^ w[Round & 15], 1);
    }
    w[Round & 15] = word;

    // The round function and constant of each 20 rounds: choose, parity, majority, parity.
    if constexpr (Round < 20) {
        e += 0x5A827999u + word;
        e += d ^ (b & (c ^ d));
    } else if constexpr (Round < 40) {
        e += 0x6ED9EBA1u + word;
        e += b ^ c ^ d;
    } else if constexpr (Round < 60) {
        e += 0x8F1BBCDCu + word;
        e += (b & c) | (d & (b | c));
    } else {
        e += 0xCA62C1D6u + word;
        e += b ^ c ^ d;
    }
    e += Rotl(a, 5);
    b = Rotl(b, 30);
}

// Five rounds bring the roles of a..e back to where they started.
template <int First>
VEY_SHA1_INLINE void FiveSteps(uint32_t& a, uint32_t& b, uint32_t& c, uint32_t& d, uint32_t& e, uint32_t (&w)[16], const uint8_t* block)
{
    Step<First>(a, b, c, d, e, w, block);
    Step<First + 1>(e, a, b, c, d, w, block);
    Step<First + 2>(d, e, a, b, c, w, block);
    Step<First + 3>(c, d, e, a, b, w, block);
    Step<First + 4>(b, c, d, e, a, w, block);
}

template <size_t... Group>
VEY_SHA1_INLINE void AllSteps(uint32_t& a, uint32_t& b, uint32_t& c, uint32_t& d, uint32_t& e, uint32_t (&w)[16], const uint8_t* block,
                              std::index_sequence<Group...>)
{
    (FiveSteps<int(Group) * 5>(a, b, c, d, e, w, block), ...);
}

}  // namespace

void Sha1CompressPortable(uint32_t state[5], const uint8_t* blocks, size_t blockCount)
{
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
    uint32_t w[16];
    for (; blockCount != 0; --blockCount, blocks += kSha1BlockSize) {
        const uint32_t a0 = a, b0 = b, c0 = c, d0 = d, e0 = e;
        AllSteps(a, b, c, d, e, w, blocks, std::make_index_sequence<16>());
        a += a0;
        b += b0;
        c += c0;
        d += d0;
        e += e0;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
    state[4] = e;
}

Sha1Compress Sha1DefaultCompress()
{
    static const Sha1Compress chosen = Sha1HardwareAvailable() ? Sha1HardwareCompress() : &Sha1CompressPortable;
    return chosen;
}

void Sha1Init(Sha1Context& context, Sha1Compress compress)
{
    context.state[0] = 0x67452301u;
    context.state[1] = 0xEFCDAB89u;
    context.state[2] = 0x98BADCFEu;
    context.state[3] = 0x10325476u;
    context.state[4] = 0xC3D2E1F0u;
    context.length = 0;
    context.compress = compress ? compress : Sha1DefaultCompress();
}

void Sha1Update(Sha1Context& context, const void* data, size_t size)
{
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    size_t buffered = size_t(context.length % kSha1BlockSize);
    context.length += size;

    if (buffered != 0) {
        const size_t take = size < kSha1BlockSize - buffered ? size : kSha1BlockSize - buffered;
        std::memcpy(context.buffer + buffered, bytes, take);
        bytes += take;
        size -= take;
        buffered += take;
        if (buffered < kSha1BlockSize) {
            return;
        }
        context.compress(context.state, context.buffer, 1);
    }
    // Whole blocks straight from the caller's memory.
    const size_t blockCount = size / kSha1BlockSize;
    if (blockCount != 0) {
        context.compress(context.state, bytes, blockCount);
        bytes += blockCount * kSha1BlockSize;
        size -= blockCount * kSha1BlockSize;
    }
    if (size != 0) {
        std::memcpy(context.buffer, bytes, size);
    }
}

void Sha1Final(Sha1Context& context, uint8_t digest[kSha1DigestSize])
{
    // 0x80, zeros up to 56 bytes into a block, then the message length in bits, big-endian.
    size_t buffered = size_t(context.length % kSha1BlockSize);
    context.buffer[buffered++] = 0x80;
    if (buffered > kSha1BlockSize - 8) {
        std::memset(context.buffer + buffered, 0, kSha1BlockSize - buffered);
        context.compress(context.state, context.buffer, 1);
        buffered = 0;
    }
    std::memset(context.buffer + buffered, 0, kSha1BlockSize - 8 - buffered);
    const uint64_t bits = context.length << 3;
    StoreBig32(context.buffer + kSha1BlockSize - 8, uint32_t(bits >> 32));
    StoreBig32(context.buffer + kSha1BlockSize - 4, uint32_t(bits));
    context.compress(context.state, context.buffer, 1);

    for (int i = 0; i < 5; ++i) {
        StoreBig32(digest + 4 * i, context.state[i]);
    }
}

void Sha1Buffer(const void* data, size_t size, uint8_t digest[kSha1DigestSize], Sha1Compress compress)
{
    Sha1Context context;
    Sha1Init(context, compress);
    Sha1Update(context, data, size);
    Sha1Final(context, digest);
}
