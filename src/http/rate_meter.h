// RateMeter: the sliding-window meter that paces a body: the bytes of each slot of rateSlotMs over
// the last rateSlotCount slots. Another thread may read or clear the meter while a body arrives, so
// every use holds rateLock.
#pragma once
#include "runtime/handles.h"

#include <cstddef>
#include <cstdint>

class RateMeter {
public:
    // Takes the zeroed slot counters from the pool.
    RateMeter();
    ~RateMeter();
    RateMeter(const RateMeter&) = delete;
    RateMeter& operator=(const RateMeter&) = delete;

    // How much of a piece of `wanted` bytes rateActiveLimit admits now: all of it without a limit,
    // none once the rate over the window has reached the limit.
    size_t Allowance(size_t wanted);
    // Moves the window up to now and counts `bytes` in the current slot. It runs also without a
    // limit, so that the meter can be read while a transfer runs.
    void Count(size_t bytes);
    // Zeroes the slots and the window.
    void Clear();

    uint32_t* rateSlots = nullptr;  // rateSlotCount counters
    uint32_t rateSum = 0;           // the sum of rateSlots
    uint32_t rateSlotCount = 30;
    uint32_t rateSlotIndex = 0;
    uint32_t rateSlotMs = 100;
    uint32_t rateSlotStart = 0;     // milliseconds
    uint32_t rateActiveLimit = 0;   // bytes per second for the body in progress, 0 = unlimited
    CriticalSection rateLock{0xFFFFFFFF};
    uint32_t rateSlotBytes = 0;     // bytes of the current slot
};
