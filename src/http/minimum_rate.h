// MinimumRate: whether a transfer keeps up a lowest rate over every minute, so that a host that
// sends a byte now and then cannot hold a request forever. Counts are sampled once a second.
#pragma once
#include <cstdint>

class MinimumRate {
public:
    // Starts a transfer at `nowMs`; a rate of 0 bytes per second always holds.
    void Start(uint32_t bytesPerSecond, uint64_t nowMs);
    // False once the bytes taken over the last 60 s, from the transfer's total so far, are fewer
    // than 60 s at the rate.
    bool Holds(uint64_t totalBytes, uint64_t nowMs);

private:
    static constexpr uint32_t kWindowSeconds = 60;

    uint32_t rate = 0;
    uint64_t samples[kWindowSeconds + 1] = {};  // totals at the last whole seconds, a ring
    uint64_t nextSampleMs = 0;
    uint64_t taken = 0;                          // samples taken since Start
};
