// Xxh64 against digests made with Debian's xxhsum -H64 over the bytes (i * 7 + 3) & 255, whole
// and fed in uneven pieces.
#include "zstd/xxhash64.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

struct Known {
    size_t length;
    uint64_t digest;
};

const Known kKnown[] = {
    {0, 0xef46db3751d8e999ull},   {1, 0x1f25c8d0bc1f4bb6ull},  {3, 0x31d2363f52e564c9ull},
    {4, 0x9bb64b7d66ee9fdaull},   {7, 0x9a7b149959ce60d8ull},  {8, 0xdab99d95c6f90092ull},
    {31, 0xa2aa5f33cc4a6119ull},  {32, 0x23c3c17ef790fd97ull}, {33, 0x50a7cfc7ba588784ull},
    {63, 0x5e3e54b431c7493cull},  {64, 0x0eb64b3ef6eeb01full}, {100, 0xa61f8d4c170fe531ull},
    {1000, 0x5f235fa033f1a3fbull},
};

std::vector<uint8_t> Pattern(size_t length)
{
    std::vector<uint8_t> bytes(length);
    for (size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<uint8_t>((i * 7 + 3) & 255);
    return bytes;
}

TEST(Xxh64, MatchesKnownDigestsWhole)
{
    for (const Known& known : kKnown) {
        std::vector<uint8_t> bytes = Pattern(known.length);
        Xxh64 hash;
        hash.Update(bytes.data(), bytes.size());
        EXPECT_EQ(hash.Digest(), known.digest) << known.length << " bytes";
    }
}

TEST(Xxh64, MatchesKnownDigestsInPieces)
{
    const size_t pieces[] = {1, 5, 13, 31, 32, 33};
    for (const Known& known : kKnown) {
        std::vector<uint8_t> bytes = Pattern(known.length);
        for (size_t piece : pieces) {
            Xxh64 hash;
            for (size_t at = 0; at < bytes.size(); at += piece)
                hash.Update(bytes.data() + at, bytes.size() - at < piece ? bytes.size() - at : piece);
            EXPECT_EQ(hash.Digest(), known.digest) << known.length << " bytes in pieces of " << piece;
        }
    }
}

TEST(Xxh64, ResetStartsAgain)
{
    std::vector<uint8_t> bytes = Pattern(100);
    Xxh64 hash;
    hash.Update(bytes.data(), 40);
    hash.Reset();
    hash.Update(bytes.data(), bytes.size());
    EXPECT_EQ(hash.Digest(), 0xa61f8d4c170fe531ull);
}

}  // namespace
