// Tests of the SHA-512 digest: the FIPS 180-4 example messages, agreement with openssl on random
// data around every block boundary and over a mebibyte, and incremental updates split anywhere.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/random_bytes.h"
#include "runtime/text.h"
#include "crypto/sha512.h"

namespace {

struct ExpectedSum {
    size_t size;
    const char* digest;  // as openssl prints it: lower-case hexadecimal
};

const ExpectedSum kOpensslDigests[] = {
#include "sha512_sums.inc"
};

std::wstring HexDigest(const void* data, size_t size)
{
    uint8_t digest[kSha512DigestSize];
    Sha512Buffer(data, size, digest);
    return BytesToHex(digest, sizeof digest);
}

std::wstring HexDigest(const std::string& text)
{
    return HexDigest(text.data(), text.size());
}

std::wstring IncrementalDigest(const uint8_t* data, const std::vector<size_t>& pieces)
{
    Sha512Context context;
    Sha512Init(context);
    for (size_t piece : pieces) {
        Sha512Update(context, data, piece);
        data += piece;
    }
    uint8_t digest[kSha512DigestSize];
    Sha512Final(context, digest);
    return BytesToHex(digest, sizeof digest);
}

}  // namespace

TEST(Sha512, FipsMessages)
{
    EXPECT_EQ(HexDigest(""), L"CF83E1357EEFB8BDF1542850D66D8007D620E4050B5715DC83F4A921D36CE9CE"
                             L"47D0D13C5D85F2B0FF8318D2877EEC2F63B931BD47417A81A538327AF927DA3E");
    EXPECT_EQ(HexDigest("abc"), L"DDAF35A193617ABACC417349AE20413112E6FA4E89A97EA20A9EEEE64B55D39A"
                                L"2192992A274FC1A836BA3C23A3FEEBBD454D4423643CE80E2A9AC94FA54CA49F");
    EXPECT_EQ(HexDigest("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              L"204A8FC6DDA82F0A0CED7BEB8E08A41657C16EF468B228A8279BE331A703C335"
              L"96FD15C13B1B07F9AA1D3BEA57789CA031AD85C7A71DD70354EC631238CA3445");
    EXPECT_EQ(HexDigest("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu"),
              L"8E959B75DAE313DA8CF4F72814FC143F8F7779C6EB9F7FA17299AEADB6889018"
              L"501D289E4900F7E4331B99DEC4B5433AC7D329EEB6DD26545E96E55B874BE909");

    const std::string million(1000000, 'a');
    const std::wstring millionDigest = L"E718483D0CE769644E2E42C7BC15B4638E1F98B13B2044285632A803AFA973EB"
                                       L"DE0FF244877EA60A4CB0432CE577C31BEB009C5C2C49AA2E4EADB217AD8CC09B";
    EXPECT_EQ(HexDigest(million), millionDigest);
    // The same message fed 1000 bytes at a time.
    EXPECT_EQ(IncrementalDigest(reinterpret_cast<const uint8_t*>(million.data()), std::vector<size_t>(1000, 1000)), millionDigest);
}

TEST(Sha512, AgreesWithOpenssl)
{
    for (const ExpectedSum& expected : kOpensslDigests) {
        const std::vector<uint8_t> data = RandomBytes(expected.size);
        const std::wstring digest = HexDigest(data.data(), data.size());
        EXPECT_TRUE(EqualsNoCase(digest, Utf8ToWide(expected.digest)))
            << "size " << expected.size << ": " << WideToUtf8(digest) << ", openssl " << expected.digest;
    }
}

TEST(Sha512, IncrementalSplits)
{
    const size_t size = 600;
    const std::vector<uint8_t> data = RandomBytes(size);
    const std::wstring whole = HexDigest(data.data(), size);

    // Two pieces split at every offset, with an empty update at the split.
    for (size_t split = 0; split <= size; ++split) {
        EXPECT_EQ(IncrementalDigest(data.data(), {split, 0, size - split}), whole) << "split at " << split;
    }
    // Equal pieces of every length up to three blocks, and whatever remains.
    for (size_t piece = 1; piece <= 3 * kSha512BlockSize; ++piece) {
        std::vector<size_t> pieces(size / piece, piece);
        pieces.push_back(size % piece);
        EXPECT_EQ(IncrementalDigest(data.data(), pieces), whole) << "pieces of " << piece;
    }
}
