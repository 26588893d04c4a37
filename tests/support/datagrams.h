// Helpers of the discovery datagram tests: big-endian fields as byte strings, and the random
// edits that the robustness tests make to a datagram before it is read.
#pragma once
#include "discovery/datagram_fields.h"
#include "support/fuzz.h"

#include <cstddef>
#include <cstdint>
#include <string>

inline std::string BigEndian(uint64_t value, int bytes)
{
    std::string out;
    PutBigEndian(out, value, bytes);
    return out;
}

// The length field that follows the prefix, the version and the kind.
inline uint64_t LengthField(const std::string& datagram, size_t prefixSize)
{
    uint64_t length = 0;
    for (size_t i = 0; i < 4; ++i)
        length = length << 8 | static_cast<unsigned char>(datagram[prefixSize + 2 + i]);
    return length;
}

// Writes the datagram's size into its length field (one time in six a wrong value), makes up to
// three random edits (a changed byte, a cut, inserted or erased bytes, a repeated run) and keeps
// at most `limit` bytes, as a receive buffer of that size would.
inline std::string Garble(Random& random, std::string datagram, size_t prefixSize, size_t limit)
{
    uint64_t length = datagram.size();
    if (random.OneIn(6)) {
        const uint64_t choices[] = {length - 1, length + 1, 0, 0xFFFFFFFFu, random.Below(4096)};
        length = random.Pick(choices);
    }
    if (datagram.size() >= prefixSize + 6)
        datagram.replace(prefixSize + 2, 4, BigEndian(length, 4));
    for (uint32_t n = random.OneIn(3) ? random.Below(4) : 0; n > 0 && !datagram.empty(); --n) {
        size_t at = random.Below(static_cast<uint32_t>(datagram.size()));
        switch (random.Below(5)) {
        case 0:
            datagram[at] = static_cast<char>(random.Below(256));
            break;
        case 1:
            datagram.resize(at);
            break;
        case 2:
            datagram.insert(at, random.Bytes(1 + random.Below(8)));
            break;
        case 3:
            datagram.erase(at, 1 + random.Below(8));
            break;
        default:
            datagram.insert(at, datagram.substr(at, random.Below(32)));
            break;
        }
    }
    if (datagram.size() > limit)
        datagram.resize(limit);
    return datagram;
}
