// Tests of Ed25519 verification: the RFC 8032 vectors and signatures made by python3-cryptography
// and openssl pass; any single flipped bit of signature, key or message, another key, a
// non-canonical S (S + nL), a key of small order in any encoding, and keys that are not canonical
// or not on the curve fail. The data comes from ed25519_vectors.py.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/text.h"
#include "crypto/ed25519.h"

namespace {

struct SignedMessage {
    const char* publicKey;
    const char* message;
    const char* signature;
};

struct SmallOrderKey {
    const char* publicKey;
    const char* message;  // with R = B and S = 1, [S]B = R + [k]A holds
};

struct KeyEncoding {
    const char* publicKey;
    bool usable;
};

#include "ed25519_vectors.inc"

std::vector<uint8_t> FromHex(const char* text)
{
    std::vector<uint8_t> bytes;
    for (; text[0] != 0 && text[1] != 0; text += 2) {
        bytes.push_back(uint8_t(HexDigitValue(wchar_t(text[0])) * 16 + HexDigitValue(wchar_t(text[1]))));
    }
    return bytes;
}

struct Case {
    std::vector<uint8_t> key, message, signature;

    explicit Case(const SignedMessage& vector)
        : key(FromHex(vector.publicKey)), message(FromHex(vector.message)), signature(FromHex(vector.signature))
    {
    }

    bool Verify() const { return Ed25519Verify(key.data(), message.data(), message.size(), signature.data()); }
};

// L, the group order, little-endian.
const char kGroupOrderHex[] = "edd3f55c1a631258d69cf7a2def9de1400000000000000000000000000000010";

// a += b over 32 little-endian bytes; false when the sum no longer fits.
bool AddTo(uint8_t* a, const uint8_t* b)
{
    int carry = 0;
    for (int i = 0; i < 32; ++i) {
        const int sum = a[i] + b[i] + carry;
        a[i] = uint8_t(sum);
        carry = sum >> 8;
    }
    return carry == 0;
}

// Flips every `step`-th bit of `bytes`, starting at `first`, and expects each flip to fail.
void ExpectEveryFlipFails(Case& c, std::vector<uint8_t> Case::*field, size_t first, size_t step, const char* what)
{
    std::vector<uint8_t>& bytes = c.*field;
    for (size_t bit = first; bit < bytes.size() * 8; bit += step) {
        bytes[bit / 8] ^= uint8_t(1 << (bit % 8));
        EXPECT_FALSE(c.Verify()) << what << " bit " << bit << " flipped";
        bytes[bit / 8] ^= uint8_t(1 << (bit % 8));
    }
    EXPECT_TRUE(c.Verify());
}

}  // namespace

TEST(Ed25519, KnownAnswersPass)
{
    for (const SignedMessage& vector : kKnownAnswers) {
        const Case c(vector);
        EXPECT_TRUE(Ed25519PublicKeyUsable(c.key.data())) << vector.publicKey;
        EXPECT_TRUE(c.Verify()) << vector.signature;
    }
}

TEST(Ed25519, MadeSignaturesPass)
{
    for (const SignedMessage& vector : kMadeSignatures) {
        const Case c(vector);
        EXPECT_TRUE(Ed25519PublicKeyUsable(c.key.data())) << vector.publicKey;
        EXPECT_TRUE(c.Verify()) << "message of " << c.message.size() << " bytes";
    }
}

TEST(Ed25519, EveryFlippedBitOfKnownAnswersFails)
{
    for (const SignedMessage& vector : kKnownAnswers) {
        Case c(vector);
        ExpectEveryFlipFails(c, &Case::signature, 0, 1, "signature");
        ExpectEveryFlipFails(c, &Case::key, 0, 1, "key");
        ExpectEveryFlipFails(c, &Case::message, 0, 1, "message");
    }
}

TEST(Ed25519, SampledFlippedBitsOfMadeSignaturesFail)
{
    size_t first = 0;
    for (const SignedMessage& vector : kMadeSignatures) {
        Case c(vector);
        first = (first + 5) % 29;
        ExpectEveryFlipFails(c, &Case::signature, first, 29, "signature");
        ExpectEveryFlipFails(c, &Case::key, first, 29, "key");
        ExpectEveryFlipFails(c, &Case::message, first, 29 + c.message.size() / 16, "message");
    }
}

TEST(Ed25519, ShortenedOrLengthenedMessageFails)
{
    for (const SignedMessage& vector : kMadeSignatures) {
        Case c(vector);
        if (!c.message.empty()) {
            EXPECT_FALSE(Ed25519Verify(c.key.data(), c.message.data(), c.message.size() - 1, c.signature.data()));
        }
        c.message.push_back(0);
        EXPECT_FALSE(c.Verify()) << "message of " << c.message.size() - 1 << " bytes and a zero";
    }
}

TEST(Ed25519, AnotherKeyFails)
{
    const size_t count = sizeof kMadeSignatures / sizeof kMadeSignatures[0];
    for (size_t i = 0; i < count; ++i) {
        Case c(kMadeSignatures[i]);
        const std::vector<uint8_t> other = FromHex(kMadeSignatures[(i + 1) % count].publicKey);
        ASSERT_NE(other, c.key);
        c.key = other;
        EXPECT_FALSE(c.Verify()) << "message of " << c.message.size() << " bytes";
    }
}

// S + nL satisfies the group equation as S does; only the range check refuses it.
TEST(Ed25519, NonCanonicalSFails)
{
    const std::vector<uint8_t> order = FromHex(kGroupOrderHex);
    for (const SignedMessage& vector : kKnownAnswers) {
        Case c(vector);
        int multiples = 0;
        while (AddTo(c.signature.data() + 32, order.data())) {
            ++multiples;
            EXPECT_FALSE(c.Verify()) << vector.signature << " with S + " << multiples << "L";
        }
        EXPECT_GE(multiples, 14);
    }
    Case c(kKnownAnswers[0]);
    std::copy(order.begin(), order.end(), c.signature.begin() + 32);
    EXPECT_FALSE(c.Verify()) << "S = L";
    std::fill(c.signature.begin() + 32, c.signature.end(), uint8_t(0xFF));
    EXPECT_FALSE(c.Verify()) << "S = 2^256 - 1";
}

TEST(Ed25519, SmallOrderKeysFail)
{
    // R is the encoding of B, S is 1.
    std::vector<uint8_t> signature = FromHex("5866666666666666666666666666666666666666666666666666666666666666");
    signature.push_back(1);
    signature.resize(64);
    for (const SmallOrderKey& small : kSmallOrderKeys) {
        const std::vector<uint8_t> key = FromHex(small.publicKey);
        const std::vector<uint8_t> message = FromHex(small.message);
        EXPECT_FALSE(Ed25519PublicKeyUsable(key.data())) << small.publicKey;
        EXPECT_FALSE(Ed25519Verify(key.data(), message.data(), message.size(), signature.data())) << small.publicKey;
    }
}

TEST(Ed25519, KeyEncodings)
{
    for (const KeyEncoding& encoding : kKeyEncodings) {
        const std::vector<uint8_t> key = FromHex(encoding.publicKey);
        EXPECT_EQ(Ed25519PublicKeyUsable(key.data()), encoding.usable) << encoding.publicKey;
    }
}

// R must be the canonical encoding of a curve point: y = p + 3 names the same point as y = 3.
TEST(Ed25519, UndecodableRFails)
{
    Case c(kKnownAnswers[1]);
    for (const char* r : {"f0ffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f",
                          "0200000000000000000000000000000000000000000000000000000000000000"}) {
        const std::vector<uint8_t> bytes = FromHex(r);
        std::copy(bytes.begin(), bytes.end(), c.signature.begin());
        EXPECT_FALSE(c.Verify()) << r;
    }
}
