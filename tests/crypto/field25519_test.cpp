// Tests of the arithmetic modulo p = 2^255 - 19: results against Python's integers, the
// canonical encoding of values at and above p, and the identities the curve code relies on.
#include <gtest/gtest.h>

#include <string>

#include "runtime/text.h"
#include "crypto/field25519.h"

namespace {

FieldElement FromHex(const char* text)
{
    uint8_t bytes[32];
    for (int i = 0; i < 32; ++i) {
        bytes[i] = uint8_t(HexDigitValue(wchar_t(text[2 * i])) * 16 + HexDigitValue(wchar_t(text[2 * i + 1])));
    }
    return FieldFromBytes(bytes);
}

// The canonical encoding, as lower-case hexadecimal like the literals here.
std::string ToHex(const FieldElement& a)
{
    uint8_t bytes[32];
    FieldToBytes(bytes, a);
    return WideToUtf8(LowerAscii(BytesToHex(bytes, sizeof bytes)));
}

// Two values below p, little-endian, and their results computed with python3 integers.
const char kA[] = "76eef99f25f8ad6b3231dcc67751485ed287d2983acc129bd86acf5210cc9535";
const char kB[] = "9e1f0db1fb772f917eb60dd7e5eb33ee352100d85050868e9b9f5eeaef71727f";
const char kPrimeMinusOne[] = "ecffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f";

}  // namespace

TEST(Field25519, AgreesWithPythonIntegers)
{
    const FieldElement a = FromHex(kA);
    const FieldElement b = FromHex(kB);
    EXPECT_EQ(ToHex(a), kA);
    EXPECT_EQ(ToHex(FieldAdd(a, b)), "270e07512170ddfcb0e7e99d5d3d7c4c08a9d2708b1c9929740a2e3d003e0835");
    EXPECT_EQ(ToHex(FieldSub(a, b)), "c5ceecee29807edab37aceef916514709c66d2c0e97b8c0c3dcb7068205a2336");
    EXPECT_EQ(ToHex(FieldSub(b, a)), "28311311d67f81254c8531106e9aeb8f63992d3f168473f3c2348f97dfa5dc49");
    EXPECT_EQ(ToHex(FieldMul(a, b)), "f46c25b592610a43b4ea7fbc14c4e5763f3f23081e48b21e8d34a7d0594b2557");
    EXPECT_EQ(ToHex(FieldInvert(a)), "0e29bd0e48a58d176e7fd860b0590fbf7f9775355677e27a2b6846493f67a805");
    EXPECT_EQ(ToHex(FieldPowP58(a)), "ad57da091e268fa3ce983ec122e662d7bf78ec83e892fad01c380a662fd7c036");
}

TEST(Field25519, EncodingIsReducedBelowP)
{
    EXPECT_EQ(ToHex(FromHex("edffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f")), std::string(64, '0'));  // p
    EXPECT_EQ(ToHex(FromHex("eeffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f")),
              "0100000000000000000000000000000000000000000000000000000000000000");  // p + 1
    EXPECT_EQ(ToHex(FromHex("ffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f")),
              "1200000000000000000000000000000000000000000000000000000000000000");  // 2^255 - 1
    // The top bit is not part of the value.
    EXPECT_EQ(ToHex(FromHex("0500000000000000000000000000000000000000000000000000000000000080")),
              "0500000000000000000000000000000000000000000000000000000000000000");
    EXPECT_EQ(ToHex(FieldSub(FieldFromInt(0), FieldFromInt(1))), kPrimeMinusOne);
    EXPECT_EQ(ToHex(FieldAdd(FromHex(kPrimeMinusOne), FieldFromInt(1))), std::string(64, '0'));
    EXPECT_EQ(ToHex(FieldFromInt(121666)), "42db010000000000000000000000000000000000000000000000000000000000");
}

TEST(Field25519, Identities)
{
    const FieldElement one = FieldFromInt(1);
    const FieldElement largest = FromHex(kPrimeMinusOne);
    EXPECT_TRUE(FieldEqual(FieldSquare(largest), one));  // (-1)^2
    EXPECT_TRUE(FieldEqual(FieldMul(FieldInvert(largest), largest), one));
    EXPECT_TRUE(FieldEqual(FieldMul(FieldInvert(FromHex(kB)), FromHex(kB)), one));
    EXPECT_TRUE(FieldIsZero(FieldInvert(FieldFromInt(0))));
    EXPECT_TRUE(FieldEqual(FieldNegate(one), largest));
    // 2 (2^((p-5)/8))^2 squares to -1.
    const FieldElement two = FieldFromInt(2);
    const FieldElement root = FieldMul(two, FieldSquare(FieldPowP58(two)));
    EXPECT_TRUE(FieldEqual(FieldSquare(root), largest));
    EXPECT_TRUE(FieldIsOdd(one));
    EXPECT_FALSE(FieldIsOdd(largest));  // p - 1 is even
}
