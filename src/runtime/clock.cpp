// Process-wide performance-counter frequency.
#include "runtime/clock.h"

#include <windows.h>

namespace {
int64_t frequency = 0;
}

void InitPerformanceFrequency()
{
    LARGE_INTEGER value;
    QueryPerformanceFrequency(&value);
    frequency = value.QuadPart;
}

int64_t PerformanceFrequency()
{
    if (frequency == 0)
        InitPerformanceFrequency();
    return frequency;
}

uint64_t PerformanceMilliseconds()
{
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return static_cast<uint64_t>(counter.QuadPart) * 1000 / static_cast<uint64_t>(PerformanceFrequency());
}
