// RateMeter: the window's admission rule and its slot bookkeeping.
#include "http/rate_meter.h"
#include "runtime/clock.h"
#include "runtime/pool.h"

#include <cstring>

RateMeter::RateMeter()
{
    rateSlots = static_cast<uint32_t*>(PoolAlloc(PoolClassFor(rateSlotCount * sizeof(uint32_t))));
    std::memset(rateSlots, 0, rateSlotCount * sizeof(uint32_t));
}

RateMeter::~RateMeter()
{
    PoolFree(rateSlots);
}

size_t RateMeter::Allowance(size_t wanted)
{
    if (!rateActiveLimit)
        return wanted;
    uint32_t rate;
    {
        CriticalSectionLock reading(rateLock);
        uint32_t windowSeconds = rateSlotCount / (1000 / rateSlotMs);
        rate = (rateSum + rateSlotBytes - rateSlots[rateSlotIndex]) / windowSeconds;
    }
    size_t allowance = rate < rateActiveLimit ? rateActiveLimit - rate : 0;
    return allowance < wanted ? allowance : wanted;
}

void RateMeter::Count(size_t bytes)
{
    auto now = static_cast<uint32_t>(PerformanceMilliseconds());
    CriticalSectionLock counting(rateLock);
    if (rateSlotStart == 0)
        rateSlotStart = now;
    while (now - rateSlotStart >= rateSlotMs) {
        rateSum += rateSlotBytes - rateSlots[rateSlotIndex];
        rateSlots[rateSlotIndex] = rateSlotBytes;
        rateSlotStart += rateSlotMs;
        rateSlotIndex = (rateSlotIndex + 1) % rateSlotCount;
        rateSlotBytes = 0;
    }
    rateSlotBytes += static_cast<uint32_t>(bytes);
}

void RateMeter::Clear()
{
    CriticalSectionLock clearing(rateLock);
    std::memset(rateSlots, 0, rateSlotCount * sizeof(uint32_t));
    rateSum = 0;
    rateSlotIndex = 0;
    rateSlotStart = 0;
    rateSlotBytes = 0;
}
