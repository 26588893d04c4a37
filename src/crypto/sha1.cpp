// SHA-1: the portable block function, the incremental context and the one-shot digest.
// The block function selection and the SHA instruction path live in sha1_x86.cpp.
#include "crypto/sha1.h"
#include "crypto/hash_blocks.h"

#include <utility>

namespace {

// Round `Round` of 80. The message schedule keeps only the last 16 words, in a ring.
// The caller rotates the roles of a..e between calls instead of moving the values.
template <int Round>
VEY_HASH_INLINE void Step(uint32_t a, uint32_t& b, uint32_t c, uint32_t d, uint32_t& e, uint32_t (&w)[16], const uint8_t* block)
{
    uint32_t word;
    if constexpr (Round < 16) {
        word = LoadBig32(block + 4 * Round);
    } else {
        // W[t-3] ^ W[t-8] ^ W[t-14] ^ W[t-16], rotated by one.
        word = Rotl32(w[(Round + 13) & 15] ^ w[(Round + 8) & 15] ^ w[(Round + 2) & 15] ^ w[Round & 15], 1);
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
    e += Rotl32(a, 5);
    b = Rotl32(b, 30);
}

// Five rounds bring the roles of a..e back to where they started.
template <int First>
VEY_HASH_INLINE void FiveSteps(uint32_t& a, uint32_t& b, uint32_t& c, uint32_t& d, uint32_t& e, uint32_t (&w)[16], const uint8_t* block)
{
    Step<First>(a, b, c, d, e, w, block);
    Step<First + 1>(e, a, b, c, d, w, block);
    Step<First + 2>(d, e, a, b, c, w, block);
    Step<First + 3>(c, d, e, a, b, w, block);
    Step<First + 4>(b, c, d, e, a, w, block);
}

template <size_t... Group>
VEY_HASH_INLINE void AllSteps(uint32_t& a, uint32_t& b, uint32_t& c, uint32_t& d, uint32_t& e, uint32_t (&w)[16], const uint8_t* block,
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
    HashBlocksUpdate(context, context.compress, data, size);
}

void Sha1Final(Sha1Context& context, uint8_t digest[kSha1DigestSize])
{
    HashBlocksPad<8>(context, context.compress);
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
