// RandomPick: a shuffled copy of a list of equivalent servers or hosts, with a random start.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

struct RandomPick {
    std::vector<std::wstring> items;
    uint32_t index = 0;
    std::wstring chosen;

    // Copies, shuffles and picks a start, seeded from the clocks.
    void Assign(const std::vector<std::wstring>& list);
    // The same with a given seed, so that a run can be reproduced.
    void AssignSeeded(const std::vector<std::wstring>& list, uint32_t seed);

    // Tick count, performance counter and local time mixed into 32 bits.
    static uint32_t ClockSeed();
    // One step of the generator: seed * 1103515245 + 12345 modulo 2^32.
    static uint32_t Step(uint32_t seed) { return seed * 1103515245u + 12345u; }
};
