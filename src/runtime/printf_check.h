// Compiler checks of printf-style formats, for the logging and formatting helpers.
//
// Narrow formats reach msvcrt's _vsnprintf, so they follow Microsoft's dialect ("%I64u", "%s"
// a narrow string) whatever stdio mode mingw's headers pick. mingw's gcc checks a narrow format
// against that dialect with the ms_printf archetype; __MINGW_PRINTF_FORMAT would name gnu_printf
// in C++ (libstdc++ turns on mingw's own stdio) and misread "%I64u".
//
// Wide formats reach _vsnwprintf, where "%s" takes a wide string and "%hs" a narrow one. gcc and
// clang check no wide format, so these carry only MSVC's annotation, which its code analysis
// (/analyze) checks; elsewhere a wide format is checked by review and by the tests' exact texts.
#pragma once

#if defined(__MINGW32__) && defined(__GNUC__)
// The narrow format is parameter number `formatAt`, its arguments start at `argumentsAt` (0 for
// a va_list).
#define VEY_PRINTF_A(formatAt, argumentsAt) __attribute__((__format__(ms_printf, formatAt, argumentsAt)))
#else
#define VEY_PRINTF_A(formatAt, argumentsAt)
#endif

#ifdef _MSC_VER
#include <sal.h>
// Marks a format parameter, narrow or wide, for MSVC's code analysis.
#define VEY_FORMAT_STRING _Printf_format_string_
#else
#define VEY_FORMAT_STRING
#endif
