// The performance-counter frequency, read once at start, and millisecond time from the counter.
#pragma once
#include <cstdint>

// Reads the frequency; the entry routine calls it before anything measures time.
void InitPerformanceFrequency();
int64_t PerformanceFrequency();
// Counter * 1000 / frequency.
uint64_t PerformanceMilliseconds();
