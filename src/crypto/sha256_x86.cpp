// SHA-256 block function on the x86 SHA instructions. The library is built for generic x86-64,
// so only this function is compiled for SHA and SSE4.1; it runs only after CPUID has reported
// those features, through the same check as the SHA-1 path (one extension carries both).
#include "crypto/sha1.h"
#include "crypto/sha256.h"

#if defined(_M_X64) || defined(_M_IX86) || defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include <utility>

#if defined(__GNUC__) || defined(__clang__)
#define VEY_SHA256_TARGET __attribute__((target("sha,ssse3,sse4.1")))
#define VEY_SHA256_TARGET_INLINE inline __attribute__((target("sha,ssse3,sse4.1"), always_inline))
#else
#define VEY_SHA256_TARGET
#define VEY_SHA256_TARGET_INLINE __forceinline
#endif

namespace {

// Rounds 4*Group .. 4*Group+3 on the message words in m[Group % 4]; sha256rnds2 does two rounds
// and takes its two words from the low half. From group 3 to 14 it also computes the words of
// group Group+1 in the slot of group Group-3, which they no longer need:
// W[t] = s1(W[t-2]) + W[t-7] + s0(W[t-15]) + W[t-16].
template <int Group>
VEY_SHA256_TARGET_INLINE void FourRounds(__m128i& abef, __m128i& cdgh, __m128i (&m)[4])
{
    __m128i& words = m[Group % 4];
    __m128i wk = _mm_add_epi32(words, _mm_load_si128(reinterpret_cast<const __m128i*>(kSha256RoundConstants + 4 * Group)));
    cdgh = _mm_sha256rnds2_epu32(cdgh, abef, wk);
    wk = _mm_shuffle_epi32(wk, 0x0E);
    abef = _mm_sha256rnds2_epu32(abef, cdgh, wk);
    // Two rounds turn the old A, B, E, F into the new C, D, G, H: the first call leaves the new
    // ABEF in `cdgh` and the old ABEF serves as CDGH; the second puts the names right again.
    if constexpr (Group >= 3 && Group < 15) {
        __m128i& oldest = m[(Group + 1) % 4];
        const __m128i w7 = _mm_alignr_epi8(words, m[(Group + 3) % 4], 4);
        oldest = _mm_sha256msg2_epu32(_mm_add_epi32(_mm_sha256msg1_epu32(oldest, m[(Group + 2) % 4]), w7), words);
    }
}

template <size_t... Group>
VEY_SHA256_TARGET_INLINE void AllRounds(__m128i& abef, __m128i& cdgh, __m128i (&m)[4], std::index_sequence<Group...>)
{
    (FourRounds<int(Group)>(abef, cdgh, m), ...);
}

// The registers hold the state as ABEF and CDGH, A and C in the highest lane; each 16-byte group
// of the block is loaded with every word byte-reversed, W0 in the lowest lane. Lane lists in the
// comments below start at the lowest lane.
VEY_SHA256_TARGET void CompressShaInstructions(uint32_t state[8], const uint8_t* blocks, size_t blockCount)
{
    const __m128i byteReverse = _mm_set_epi64x(0x0C0D0E0F08090A0BLL, 0x0405060700010203LL);
    const __m128i badc = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state)), 0xB1);
    const __m128i hgfe = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state + 4)), 0x1B);
    __m128i abef = _mm_alignr_epi8(badc, hgfe, 8);      // F E B A
    __m128i cdgh = _mm_blend_epi16(hgfe, badc, 0xF0);  // H G D C

    for (; blockCount != 0; --blockCount, blocks += kSha256BlockSize) {
        const __m128i abefSaved = abef;
        const __m128i cdghSaved = cdgh;
        const __m128i* in = reinterpret_cast<const __m128i*>(blocks);
        __m128i m[4] = {_mm_shuffle_epi8(_mm_loadu_si128(in), byteReverse), _mm_shuffle_epi8(_mm_loadu_si128(in + 1), byteReverse),
                        _mm_shuffle_epi8(_mm_loadu_si128(in + 2), byteReverse), _mm_shuffle_epi8(_mm_loadu_si128(in + 3), byteReverse)};
        AllRounds(abef, cdgh, m, std::make_index_sequence<16>());
        abef = _mm_add_epi32(abef, abefSaved);
        cdgh = _mm_add_epi32(cdgh, cdghSaved);
    }

    const __m128i abefInOrder = _mm_shuffle_epi32(abef, 0x1B);  // A B E F
    const __m128i ghcd = _mm_shuffle_epi32(cdgh, 0xB1);         // G H C D
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_blend_epi16(abefInOrder, ghcd, 0xF0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state + 4), _mm_alignr_epi8(ghcd, abefInOrder, 8));
}

}  // namespace

bool Sha256HardwareAvailable()
{
    return Sha1HardwareAvailable();
}

Sha256Compress Sha256HardwareCompress()
{
    return Sha256HardwareAvailable() ? &CompressShaInstructions : nullptr;
}

#else

bool Sha256HardwareAvailable()
{
    return false;
}

Sha256Compress Sha256HardwareCompress()
{
    return nullptr;
}

#endif
