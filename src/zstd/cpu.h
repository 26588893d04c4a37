// What the processor offers beyond the baseline, for the decoder's hot loops: GCC and Clang build
// a second copy of such a loop for BMI2 (shifts by a register without the CL dance) and the
// decoder picks one at run time. With other compilers both copies are the baseline and
// HasBmi2() is false. Beside it, the hints those loops give the compiler: inlining, and
// unrolling a short loop whole.
#pragma once

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#include <cpuid.h>
#define VEY_INLINE inline __attribute__((always_inline))
#define VEY_TARGET_BMI2 __attribute__((target("bmi2")))
#define VEY_PRAGMA(text) _Pragma(#text)
#define VEY_UNROLL(n) VEY_PRAGMA(GCC unroll n)

inline bool HasBmi2()
{
    static const bool has = [] {
        unsigned a, b, c, d;
        return __get_cpuid_count(7, 0, &a, &b, &c, &d) && (b & bit_BMI2);
    }();
    return has;
}
#elif defined(_MSC_VER)
#define VEY_INLINE __forceinline
#define VEY_TARGET_BMI2
#define VEY_UNROLL(n)

inline bool HasBmi2() { return false; }
#else
#define VEY_INLINE inline
#define VEY_TARGET_BMI2
#define VEY_UNROLL(n)

inline bool HasBmi2() { return false; }
#endif
