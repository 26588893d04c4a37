// MinimumRate over a ring of per-second totals: the oldest and the newest sample are a minute apart.
#include "http/minimum_rate.h"

void MinimumRate::Start(uint32_t bytesPerSecond, uint64_t nowMs)
{
    rate = bytesPerSecond;
    nextSampleMs = nowMs;
    taken = 0;
}

bool MinimumRate::Holds(uint64_t totalBytes, uint64_t nowMs)
{
    if (rate == 0)
        return true;
    constexpr uint64_t kRing = kWindowSeconds + 1;
    while (nowMs >= nextSampleMs) {
        samples[taken % kRing] = totalBytes;
        ++taken;
        nextSampleMs += 1000;
    }
    if (taken < kRing)
        return true;
    uint64_t oldest = samples[(taken - kRing) % kRing];
    return totalBytes - oldest >= uint64_t(kWindowSeconds) * rate;
}
