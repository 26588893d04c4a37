// Xxh64: four lanes over 32-byte stripes, then the tail folded in 8, 4 and 1 bytes at a time.
#include "zstd/xxhash64.h"

#include <cstring>

namespace {

constexpr uint64_t kPrime1 = 0x9E3779B185EBCA87ull;
constexpr uint64_t kPrime2 = 0xC2B2AE3D27D4EB4Full;
constexpr uint64_t kPrime3 = 0x165667B19E3779F9ull;
constexpr uint64_t kPrime4 = 0x85EBCA77C2B2AE63ull;
constexpr uint64_t kPrime5 = 0x27D4EB2F165667C5ull;

uint64_t RotateLeft(uint64_t value, int bits) { return (value << bits) | (value >> (64 - bits)); }

uint64_t Load64(const uint8_t* p)
{
    uint64_t value;
    std::memcpy(&value, p, 8);
    return value;
}

uint32_t Load32(const uint8_t* p)
{
    uint32_t value;
    std::memcpy(&value, p, 4);
    return value;
}

uint64_t Round(uint64_t lane, uint64_t input)
{
    lane += input * kPrime2;
    lane = RotateLeft(lane, 31);
    return lane * kPrime1;
}

uint64_t Merge(uint64_t hash, uint64_t lane)
{
    hash ^= Round(0, lane);
    return hash * kPrime1 + kPrime4;
}

void Stripes(uint64_t* lanes, const uint8_t* p, size_t count)
{
    uint64_t a = lanes[0], b = lanes[1], c = lanes[2], d = lanes[3];
    for (size_t i = 0; i < count; ++i, p += 32) {
        a = Round(a, Load64(p));
        b = Round(b, Load64(p + 8));
        c = Round(c, Load64(p + 16));
        d = Round(d, Load64(p + 24));
    }
    lanes[0] = a, lanes[1] = b, lanes[2] = c, lanes[3] = d;
}

}  // namespace

void Xxh64::Reset(uint64_t newSeed)
{
    seed = newSeed;
    lanes[0] = seed + kPrime1 + kPrime2;
    lanes[1] = seed + kPrime2;
    lanes[2] = seed;
    lanes[3] = seed - kPrime1;
    total = 0;
    held = 0;
}

void Xxh64::Update(const void* data, size_t length)
{
    if (!length)
        return;
    const uint8_t* p = static_cast<const uint8_t*>(data);
    total += length;
    if (held) {
        size_t take = length < 32 - held ? length : 32 - held;
        std::memcpy(stripe + held, p, take);
        held += take;
        p += take;
        length -= take;
        if (held < 32)
            return;
        Stripes(lanes, stripe, 1);
        held = 0;
    }
    Stripes(lanes, p, length / 32);
    p += length / 32 * 32;
    held = length % 32;
    std::memcpy(stripe, p, held);
}

uint64_t Xxh64::Digest() const
{
    uint64_t hash;
    if (total >= 32) {
        hash = RotateLeft(lanes[0], 1) + RotateLeft(lanes[1], 7) + RotateLeft(lanes[2], 12) + RotateLeft(lanes[3], 18);
        for (uint64_t lane : lanes)
            hash = Merge(hash, lane);
    } else {
        hash = seed + kPrime5;
    }
    hash += total;
    const uint8_t* p = stripe;
    size_t left = held;
    for (; left >= 8; left -= 8, p += 8)
        hash = RotateLeft(hash ^ Round(0, Load64(p)), 27) * kPrime1 + kPrime4;
    if (left >= 4) {
        hash = RotateLeft(hash ^ (Load32(p) * kPrime1), 23) * kPrime2 + kPrime3;
        p += 4;
        left -= 4;
    }
    for (; left; --left, ++p)
        hash = RotateLeft(hash ^ (*p * kPrime5), 11) * kPrime1;
    hash ^= hash >> 33;
    hash *= kPrime2;
    hash ^= hash >> 29;
    hash *= kPrime3;
    hash ^= hash >> 32;
    return hash;
}
