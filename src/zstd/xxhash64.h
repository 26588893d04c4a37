// Xxh64: the 64-bit xxHash of a byte stream given in pieces of any size, seed 0 by default. A
// frame's content checksum is the low 32 bits of it.
#pragma once
#include <cstddef>
#include <cstdint>

class Xxh64 {
public:
    explicit Xxh64(uint64_t seed = 0) { Reset(seed); }
    void Reset(uint64_t seed = 0);
    void Update(const void* data, size_t length);
    uint64_t Digest() const;

private:
    uint64_t lanes[4];
    uint64_t seed;
    uint64_t total;
    uint8_t stripe[32];  // the bytes of an unfinished 32-byte stripe
    size_t held;
};
