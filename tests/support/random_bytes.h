// The reproducible data behind the generated digest sums (*_sums.inc): it must stay identical to
// random_bytes in sha1_sums.py, SplitMix64 seeded with 0x5EED000000000000 + size, eight bytes per
// output, least significant first.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

inline std::vector<uint8_t> RandomBytes(size_t size)
{
    std::vector<uint8_t> bytes(size);
    uint64_t state = 0x5EED000000000000ull + size;
    for (size_t i = 0; i < size; i += 8) {
        state += 0x9E3779B97F4A7C15ull;
        uint64_t z = state;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        z ^= z >> 31;
        for (size_t j = 0; j < 8 && i + j < size; ++j) {
            bytes[i + j] = uint8_t(z >> (8 * j));
        }
    }
    return bytes;
}
