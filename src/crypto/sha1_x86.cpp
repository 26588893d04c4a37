// SHA-1 block function on the x86 SHA instructions, and the CPUID check that allows it.
// The library is built for generic x86-64, so only this function is compiled for SHA and SSE4.1;
// it runs only after CPUID has reported those features.
#include "crypto/sha1.h"

#if defined(_M_X64) || defined(_M_IX86) || defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>
#if defined(_MSC_VER)
#include <intrin.h>
#else
#include <cpuid.h>
#endif

#if defined(__GNUC__) || defined(__clang__)
#define VEY_SHA1_TARGET __attribute__((target("sha,ssse3,sse4.1")))
#define VEY_SHA1_TARGET_INLINE inline __attribute__((target("sha,ssse3,sse4.1"), always_inline))
#else
#define VEY_SHA1_TARGET
#define VEY_SHA1_TARGET_INLINE __forceinline
#endif

namespace {

// Message words 4k..4k+3 from the four groups before them.
VEY_SHA1_TARGET_INLINE __m128i NextWords(__m128i w0, __m128i w1, __m128i w2, __m128i w3)
{
    return _mm_sha1msg2_epu32(_mm_xor_si128(_mm_sha1msg1_epu32(w0, w1), w2), w3);
}

// Four rounds after the first four. E for them is the A from before the previous four rounds,
// rotated by 30, which sha1nexte takes from `previous` and adds to the first message word.
template <int Function>
VEY_SHA1_TARGET_INLINE void FourRounds(__m128i& abcd, __m128i& previous, __m128i words)
{
    const __m128i ew = _mm_sha1nexte_epu32(previous, words);
    previous = abcd;
    abcd = _mm_sha1rnds4_epu32(abcd, ew, Function);
}

// Registers hold A (or W0) in the highest lane, so the state is loaded lane-reversed and each
// 16-byte group of the block byte-reversed, which also turns the big-endian words around.
VEY_SHA1_TARGET void CompressShaInstructions(uint32_t state[5], const uint8_t* blocks, size_t blockCount)
{
    const __m128i byteReverse = _mm_set_epi64x(0x0001020304050607LL, 0x08090A0B0C0D0E0FLL);
    __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state)), 0x1B);
    __m128i e = _mm_set_epi32(int(state[4]), 0, 0, 0);

    for (; blockCount != 0; --blockCount, blocks += kSha1BlockSize) {
        const __m128i abcdSaved = abcd;
        const __m128i eSaved = e;
        const __m128i* in = reinterpret_cast<const __m128i*>(blocks);
        __m128i m0 = _mm_shuffle_epi8(_mm_loadu_si128(in), byteReverse);
        __m128i m1 = _mm_shuffle_epi8(_mm_loadu_si128(in + 1), byteReverse);
        __m128i m2 = _mm_shuffle_epi8(_mm_loadu_si128(in + 2), byteReverse);
        __m128i m3 = _mm_shuffle_epi8(_mm_loadu_si128(in + 3), byteReverse);

        // Rounds 0-3 take E from the state.
        __m128i previous = abcd;
        abcd = _mm_sha1rnds4_epu32(abcd, _mm_add_epi32(e, m0), 0);
        m0 = NextWords(m0, m1, m2, m3);

        FourRounds<0>(abcd, previous, m1);
        m1 = NextWords(m1, m2, m3, m0);
        FourRounds<0>(abcd, previous, m2);
        m2 = NextWords(m2, m3, m0, m1);
        FourRounds<0>(abcd, previous, m3);
        m3 = NextWords(m3, m0, m1, m2);
        FourRounds<0>(abcd, previous, m0);
        m0 = NextWords(m0, m1, m2, m3);

        FourRounds<1>(abcd, previous, m1);
        m1 = NextWords(m1, m2, m3, m0);
        FourRounds<1>(abcd, previous, m2);
        m2 = NextWords(m2, m3, m0, m1);
        FourRounds<1>(abcd, previous, m3);
        m3 = NextWords(m3, m0, m1, m2);
        FourRounds<1>(abcd, previous, m0);
        m0 = NextWords(m0, m1, m2, m3);
        FourRounds<1>(abcd, previous, m1);
        m1 = NextWords(m1, m2, m3, m0);

        FourRounds<2>(abcd, previous, m2);
        m2 = NextWords(m2, m3, m0, m1);
        FourRounds<2>(abcd, previous, m3);
        m3 = NextWords(m3, m0, m1, m2);
        FourRounds<2>(abcd, previous, m0);
        m0 = NextWords(m0, m1, m2, m3);
        FourRounds<2>(abcd, previous, m1);
        m1 = NextWords(m1, m2, m3, m0);
        FourRounds<2>(abcd, previous, m2);
        m2 = NextWords(m2, m3, m0, m1);

        FourRounds<3>(abcd, previous, m3);
        m3 = NextWords(m3, m0, m1, m2);
        FourRounds<3>(abcd, previous, m0);
        FourRounds<3>(abcd, previous, m1);
        FourRounds<3>(abcd, previous, m2);
        FourRounds<3>(abcd, previous, m3);

        // E after round 79 is A from before round 76, rotated by 30.
        e = _mm_sha1nexte_epu32(previous, eSaved);
        abcd = _mm_add_epi32(abcd, abcdSaved);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_shuffle_epi32(abcd, 0x1B));
    state[4] = uint32_t(_mm_extract_epi32(e, 3));
}

// CPUID leaf 1: SSSE3 (ECX bit 9) and SSE4.1 (ECX bit 19); leaf 7 sub-leaf 0: SHA (EBX bit 29).
bool CpuHasShaInstructions()
{
    unsigned leaf1Ecx, leaf7Ebx;
#if defined(_MSC_VER)
    int registers[4];
    __cpuid(registers, 0);
    if (registers[0] < 7) {
        return false;
    }
    __cpuidex(registers, 1, 0);
    leaf1Ecx = unsigned(registers[2]);
    __cpuidex(registers, 7, 0);
    leaf7Ebx = unsigned(registers[1]);
#else
    unsigned eax, ebx, ecx, edx;
    if (!__get_cpuid_count(1, 0, &eax, &ebx, &ecx, &edx)) {
        return false;
    }
    leaf1Ecx = ecx;
    if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) {
        return false;
    }
    leaf7Ebx = ebx;
#endif
    return (leaf1Ecx & (1u << 9)) != 0 && (leaf1Ecx & (1u << 19)) != 0 && (leaf7Ebx & (1u << 29)) != 0;
}

}  // namespace

bool Sha1HardwareAvailable()
{
    static const bool available = CpuHasShaInstructions();
    return available;
}

Sha1Compress Sha1HardwareCompress()
{
    return Sha1HardwareAvailable() ? &CompressShaInstructions : nullptr;
}

#else

bool Sha1HardwareAvailable()
{
    return false;
}

Sha1Compress Sha1HardwareCompress()
{
    return nullptr;
}

#endif
