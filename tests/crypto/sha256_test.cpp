// Tests of the SHA-256 digest on both block functions: the FIPS 180-4 example messages,
// agreement with openssl on random data around every block boundary and over a mebibyte, and
// incremental updates split anywhere.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/random_bytes.h"
#include "runtime/text.h"
#include "crypto/sha256.h"

namespace {

struct ExpectedSum {
    size_t size;
    const char* digest;  // as openssl prints it: lower-case hexadecimal
};

const ExpectedSum kOpensslDigests[] = {
#include "sha256_sums.inc"
};

std::wstring HexDigest(const void* data, size_t size, Sha256Compress compress)
{
    uint8_t digest[kSha256DigestSize];
    Sha256Buffer(data, size, digest, compress);
    return BytesToHex(digest, sizeof digest);
}

std::wstring HexDigest(const std::string& text, Sha256Compress compress)
{
    return HexDigest(text.data(), text.size(), compress);
}

std::wstring IncrementalDigest(const uint8_t* data, const std::vector<size_t>& pieces, Sha256Compress compress)
{
    Sha256Context context;
    Sha256Init(context, compress);
    for (size_t piece : pieces) {
        Sha256Update(context, data, piece);
        data += piece;
    }
    uint8_t digest[kSha256DigestSize];
    Sha256Final(context, digest);
    return BytesToHex(digest, sizeof digest);
}

void CheckFipsMessages(Sha256Compress compress)
{
    EXPECT_EQ(HexDigest("", compress), L"E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855");
    EXPECT_EQ(HexDigest("abc", compress), L"BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD");
    EXPECT_EQ(HexDigest("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", compress),
              L"248D6A61D20638B8E5C026930C3E6039A33CE45964FF2167F6ECEDD419DB06C1");
    EXPECT_EQ(HexDigest("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu",
                        compress),
              L"CF5B16A778AF8380036CE59E7B0492370B249B11E8F07A51AFAC45037AFEE9D1");

    const std::string million(1000000, 'a');
    const std::wstring millionDigest = L"CDC76E5C9914FB9281A1C7E284D73E67F1809A48A497200E046D39CCC7112CD0";
    EXPECT_EQ(HexDigest(million, compress), millionDigest);
    // The same message fed 1000 bytes at a time.
    const std::vector<size_t> pieces(1000, 1000);
    EXPECT_EQ(IncrementalDigest(reinterpret_cast<const uint8_t*>(million.data()), pieces, compress), millionDigest);
}

void CheckAgainstOpenssl(Sha256Compress compress)
{
    for (const ExpectedSum& expected : kOpensslDigests) {
        const std::vector<uint8_t> data = RandomBytes(expected.size);
        const std::wstring digest = HexDigest(data.data(), data.size(), compress);
        EXPECT_TRUE(EqualsNoCase(digest, Utf8ToWide(expected.digest)))
            << "size " << expected.size << ": " << WideToUtf8(digest) << ", openssl " << expected.digest;
    }
}

void CheckIncrementalSplits(Sha256Compress compress)
{
    const size_t size = 300;
    const std::vector<uint8_t> data = RandomBytes(size);
    const std::wstring whole = HexDigest(data.data(), size, compress);

    // Two pieces split at every offset, with an empty update at the split.
    for (size_t split = 0; split <= size; ++split) {
        EXPECT_EQ(IncrementalDigest(data.data(), {split, 0, size - split}, compress), whole) << "split at " << split;
    }
    // Equal pieces of every length up to three blocks, and whatever remains.
    for (size_t piece = 1; piece <= 3 * kSha256BlockSize; ++piece) {
        std::vector<size_t> pieces(size / piece, piece);
        pieces.push_back(size % piece);
        EXPECT_EQ(IncrementalDigest(data.data(), pieces, compress), whole) << "pieces of " << piece;
    }
}

}  // namespace

TEST(Sha256Portable, FipsMessages)
{
    CheckFipsMessages(&Sha256CompressPortable);
}

TEST(Sha256Portable, AgreesWithOpenssl)
{
    CheckAgainstOpenssl(&Sha256CompressPortable);
}

TEST(Sha256Portable, IncrementalSplits)
{
    CheckIncrementalSplits(&Sha256CompressPortable);
}

TEST(Sha256Hardware, FipsMessages)
{
    if (!Sha256HardwareAvailable()) {
        GTEST_SKIP() << "this CPU has no SHA instructions";
    }
    CheckFipsMessages(Sha256HardwareCompress());
}

TEST(Sha256Hardware, AgreesWithOpenssl)
{
    if (!Sha256HardwareAvailable()) {
        GTEST_SKIP() << "this CPU has no SHA instructions";
    }
    CheckAgainstOpenssl(Sha256HardwareCompress());
}

TEST(Sha256Hardware, IncrementalSplits)
{
    if (!Sha256HardwareAvailable()) {
        GTEST_SKIP() << "this CPU has no SHA instructions";
    }
    CheckIncrementalSplits(Sha256HardwareCompress());
}

TEST(Sha256Default, PicksHardwareWhenAvailable)
{
    ASSERT_EQ(Sha256HardwareAvailable(), Sha256HardwareCompress() != nullptr);
    const Sha256Compress expected = Sha256HardwareAvailable() ? Sha256HardwareCompress() : &Sha256CompressPortable;
    EXPECT_EQ(Sha256DefaultCompress(), expected);
    Sha256Context context;
    Sha256Init(context);
    EXPECT_EQ(context.compress, expected);
    EXPECT_EQ(HexDigest("abc", nullptr), L"BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD");
}
