// RandomPick: a 32-bit linear congruential shuffle; it only has to differ between machines and runs.
#include "runtime/random_pick.h"

#include <windows.h>
#include <utility>

uint32_t RandomPick::ClockSeed()
{
    uint32_t seed = GetTickCount();
    LARGE_INTEGER counter;
    if (QueryPerformanceCounter(&counter))
        seed ^= static_cast<uint32_t>(counter.QuadPart);
    SYSTEMTIME local;
    GetLocalTime(&local);
    FILETIME fileTime;
    if (SystemTimeToFileTime(&local, &fileTime))
        seed ^= fileTime.dwLowDateTime ^ fileTime.dwHighDateTime;
    return seed;
}

void RandomPick::Assign(const std::vector<std::wstring>& list)
{
    AssignSeeded(list, ClockSeed());
}

void RandomPick::AssignSeeded(const std::vector<std::wstring>& list, uint32_t seed)
{
    if (&list != &items)
        items = list;
    if (items.empty()) {
        index = 0;
        chosen.clear();
        return;
    }
    uint32_t n = static_cast<uint32_t>(items.size());
    for (uint32_t i = 0; n > 1 && i < n - 1; ++i) {
        seed = Step(seed);
        uint32_t j = seed % (n - i) + i;
        if (j != i)
            std::swap(items[i], items[j]);
    }
    seed = Step(seed);
    index = seed % n;
    chosen = items[index];
}
