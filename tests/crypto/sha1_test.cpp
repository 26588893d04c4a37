// Tests of the SHA-1 digest on both block functions: the FIPS 180 example messages, agreement with
// sha1sum on random data around every block boundary, and incremental updates split anywhere.
// Also prints the throughput of each block function on a 256 MiB buffer.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "support/random_bytes.h"
#include "runtime/text.h"
#include "crypto/sha1.h"

namespace {

struct ExpectedSum {
    size_t size;
    const char* digest;  // as sha1sum prints it: lower-case hexadecimal
};

const ExpectedSum kSha1sumDigests[] = {
#include "sha1_sums.inc"
};

std::wstring HexDigest(const void* data, size_t size, Sha1Compress compress)
{
    uint8_t digest[kSha1DigestSize];
    Sha1Buffer(data, size, digest, compress);
    return BytesToHex(digest, sizeof digest);
}

std::wstring HexDigest(const std::string& text, Sha1Compress compress)
{
    return HexDigest(text.data(), text.size(), compress);
}

void CheckFipsMessages(Sha1Compress compress)
{
    EXPECT_EQ(HexDigest("", compress), L"DA39A3EE5E6B4B0D3255BFEF95601890AFD80709");
    EXPECT_EQ(HexDigest("abc", compress), L"A9993E364706816ABA3E25717850C26C9CD0D89D");
    EXPECT_EQ(HexDigest("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", compress),
              L"84983E441C3BD26EBAAE4AA1F95129E5E54670F1");
    EXPECT_EQ(HexDigest("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu",
                        compress),
              L"A49B2446A02C645BF419F995B67091253A04A259");

    const std::string million(1000000, 'a');
    EXPECT_EQ(HexDigest(million, compress), L"34AA973CD4C4DAA4F61EEB2BDBAD27316534016F");
    // The same message fed 1000 bytes at a time.
    Sha1Context context;
    Sha1Init(context, compress);
    for (size_t offset = 0; offset < million.size(); offset += 1000) {
        Sha1Update(context, million.data() + offset, 1000);
    }
    uint8_t digest[kSha1DigestSize];
    Sha1Final(context, digest);
    EXPECT_EQ(BytesToHex(digest, sizeof digest), L"34AA973CD4C4DAA4F61EEB2BDBAD27316534016F");
}

void CheckAgainstSha1sum(Sha1Compress compress)
{
    for (const ExpectedSum& expected : kSha1sumDigests) {
        const std::vector<uint8_t> data = RandomBytes(expected.size);
        const std::wstring digest = HexDigest(data.data(), data.size(), compress);
        EXPECT_TRUE(EqualsNoCase(digest, Utf8ToWide(expected.digest)))
            << "size " << expected.size << ": " << WideToUtf8(digest) << ", sha1sum " << expected.digest;
    }
}

std::wstring IncrementalDigest(const uint8_t* data, const std::vector<size_t>& pieces, Sha1Compress compress)
{
    Sha1Context context;
    Sha1Init(context, compress);
    for (size_t piece : pieces) {
        Sha1Update(context, data, piece);
        data += piece;
    }
    uint8_t digest[kSha1DigestSize];
    Sha1Final(context, digest);
    return BytesToHex(digest, sizeof digest);
}

void CheckIncrementalSplits(Sha1Compress compress)
{
    const size_t size = 300;
    const std::vector<uint8_t> data = RandomBytes(size);
    const std::wstring whole = HexDigest(data.data(), size, compress);

    // Two pieces split at every offset, with an empty update at the split.
    for (size_t split = 0; split <= size; ++split) {
        EXPECT_EQ(IncrementalDigest(data.data(), {split, 0, size - split}, compress), whole) << "split at " << split;
    }
    // Equal pieces of every length up to three blocks, and whatever remains.
    for (size_t piece = 1; piece <= 3 * kSha1BlockSize; ++piece) {
        std::vector<size_t> pieces(size / piece, piece);
        pieces.push_back(size % piece);
        EXPECT_EQ(IncrementalDigest(data.data(), pieces, compress), whole) << "pieces of " << piece;
    }
}

// Prints the throughput of one pass over 256 MiB, the best of three.
void PrintThroughput(const char* name, Sha1Compress compress)
{
    const size_t size = size_t(256) << 20;
    std::vector<uint8_t> data(size);
    for (size_t i = 0; i < size; ++i) {
        data[i] = uint8_t(i * 0x9E3779B1u >> 24);
    }
    double best = 1e30;
    uint8_t digest[kSha1DigestSize];
    for (int run = 0; run < 3; ++run) {
        const auto start = std::chrono::steady_clock::now();
        Sha1Buffer(data.data(), size, digest, compress);
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        best = elapsed.count() < best ? elapsed.count() : best;
    }
    std::printf("SHA-1 %s: 256 MiB in %.1f ms, %.0f MB/s (10^6 bytes/s), digest %ls\n", name, best * 1000, size / best / 1e6,
                BytesToHex(digest, sizeof digest).c_str());
}

}  // namespace

TEST(Sha1Portable, FipsMessages)
{
    CheckFipsMessages(&Sha1CompressPortable);
}

TEST(Sha1Portable, AgreesWithSha1sum)
{
    CheckAgainstSha1sum(&Sha1CompressPortable);
}

TEST(Sha1Portable, IncrementalSplits)
{
    CheckIncrementalSplits(&Sha1CompressPortable);
}

TEST(Sha1Hardware, FipsMessages)
{
    if (!Sha1HardwareAvailable()) {
        GTEST_SKIP() << "this CPU has no SHA instructions";
    }
    CheckFipsMessages(Sha1HardwareCompress());
}

TEST(Sha1Hardware, AgreesWithSha1sum)
{
    if (!Sha1HardwareAvailable()) {
        GTEST_SKIP() << "this CPU has no SHA instructions";
    }
    CheckAgainstSha1sum(Sha1HardwareCompress());
}

TEST(Sha1Hardware, IncrementalSplits)
{
    if (!Sha1HardwareAvailable()) {
        GTEST_SKIP() << "this CPU has no SHA instructions";
    }
    CheckIncrementalSplits(Sha1HardwareCompress());
}

TEST(Sha1Default, PicksHardwareWhenAvailable)
{
    ASSERT_EQ(Sha1HardwareAvailable(), Sha1HardwareCompress() != nullptr);
    const Sha1Compress expected = Sha1HardwareAvailable() ? Sha1HardwareCompress() : &Sha1CompressPortable;
    EXPECT_EQ(Sha1DefaultCompress(), expected);
    Sha1Context context;
    Sha1Init(context);
    EXPECT_EQ(context.compress, expected);
    EXPECT_EQ(HexDigest("abc", nullptr), L"A9993E364706816ABA3E25717850C26C9CD0D89D");
}

TEST(Sha1Throughput, Portable256MiB)
{
    PrintThroughput("portable", &Sha1CompressPortable);
}

TEST(Sha1Throughput, Hardware256MiB)
{
    if (!Sha1HardwareAvailable()) {
        GTEST_SKIP() << "this CPU has no SHA instructions";
    }
    PrintThroughput("hardware", Sha1HardwareCompress());
}
