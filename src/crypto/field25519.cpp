// Field arithmetic modulo 2^255 - 19 on 16 limbs of 16 bits. Limbs stay non-negative throughout,
// so carries are plain shifts and masks; 2^256 = 38 (mod p) folds the top back into the bottom.
#include "crypto/field25519.h"

#include <cstring>

namespace {

// One pass of carries from each limb into the next, the last one wrapping round times 38.
// Limbs must be non-negative and below 2^62.
void CarryPass(FieldElement& a)
{
    for (int i = 0; i < 16; ++i) {
        const int64_t carry = a.limb[i] >> 16;
        a.limb[i] &= 0xFFFF;
        if (i < 15) {
            a.limb[i + 1] += carry;
        } else {
            a.limb[0] += 38 * carry;
        }
    }
}

// Two passes leave every limb below 2^16 but the lowest, which may reach 2^16 + 37.
void Carry(FieldElement& a)
{
    CarryPass(a);
    CarryPass(a);
}

int64_t PrimeLimb(int i)
{
    return i == 0 ? 0xFFED : i == 15 ? 0x7FFF : 0xFFFF;
}

FieldElement SquareTimes(FieldElement a, int count)
{
    for (int i = 0; i < count; ++i) {
        a = FieldSquare(a);
    }
    return a;
}

// a^(2^250 - 1) and a^11, the common part of the two exponents near p.
FieldElement Pow2250Minus1(const FieldElement& a, FieldElement& a11)
{
    const FieldElement a2 = FieldSquare(a);
    const FieldElement a9 = FieldMul(SquareTimes(a2, 2), a);
    a11 = FieldMul(a9, a2);
    const FieldElement e5 = FieldMul(FieldSquare(a11), a9);  // a^(2^5 - 1) = a^31
    const FieldElement e10 = FieldMul(SquareTimes(e5, 5), e5);
    const FieldElement e20 = FieldMul(SquareTimes(e10, 10), e10);
    const FieldElement e40 = FieldMul(SquareTimes(e20, 20), e20);
    const FieldElement e50 = FieldMul(SquareTimes(e40, 10), e10);
    const FieldElement e100 = FieldMul(SquareTimes(e50, 50), e50);
    const FieldElement e200 = FieldMul(SquareTimes(e100, 100), e100);
    return FieldMul(SquareTimes(e200, 50), e50);  // a^(2^250 - 1)
}

}  // namespace

FieldElement FieldFromInt(int64_t value)
{
    FieldElement a = {};
    a.limb[0] = value;
    Carry(a);
    return a;
}

FieldElement FieldFromBytes(const uint8_t bytes[32])
{
    FieldElement a;
    for (int i = 0; i < 16; ++i) {
        a.limb[i] = int64_t(bytes[2 * i]) | int64_t(bytes[2 * i + 1]) << 8;
    }
    a.limb[15] &= 0x7FFF;
    return a;
}

void FieldToBytes(uint8_t bytes[32], const FieldElement& a)
{
    // A third pass leaves every limb below 2^16, so the value is below 2^256 = 2p + 38, and
    // subtracting p at most twice brings it below p.
    FieldElement t = a;
    Carry(t);
    CarryPass(t);
    for (int round = 0; round < 2; ++round) {
        FieldElement less;
        int64_t borrow = 0;
        for (int i = 0; i < 16; ++i) {
            const int64_t difference = t.limb[i] - PrimeLimb(i) - borrow;
            borrow = difference < 0 ? 1 : 0;
            less.limb[i] = difference + borrow * 0x10000;
        }
        if (borrow == 0) {
            t = less;
        }
    }
    for (int i = 0; i < 16; ++i) {
        bytes[2 * i] = uint8_t(t.limb[i]);
        bytes[2 * i + 1] = uint8_t(t.limb[i] >> 8);
    }
}

FieldElement FieldAdd(const FieldElement& a, const FieldElement& b)
{
    FieldElement sum;
    for (int i = 0; i < 16; ++i) {
        sum.limb[i] = a.limb[i] + b.limb[i];
    }
    Carry(sum);
    return sum;
}

FieldElement FieldSub(const FieldElement& a, const FieldElement& b)
{
    // Adding 4p limb by limb keeps every limb non-negative: each limb of 4p exceeds 2^16 + 37.
    FieldElement difference;
    for (int i = 0; i < 16; ++i) {
        difference.limb[i] = a.limb[i] + 4 * PrimeLimb(i) - b.limb[i];
    }
    Carry(difference);
    return difference;
}

FieldElement FieldNegate(const FieldElement& a)
{
    return FieldSub(FieldFromInt(0), a);
}

FieldElement FieldMul(const FieldElement& a, const FieldElement& b)
{
    // Limbs up to 2^16 + 37 give products below 2^33; 16 of them, plus 38 times 15 more, stay
    // far below 2^63.
    int64_t product[31] = {};
    for (int i = 0; i < 16; ++i) {
        for (int j = 0; j < 16; ++j) {
            product[i + j] += a.limb[i] * b.limb[j];
        }
    }
    FieldElement result;
    for (int i = 0; i < 16; ++i) {
        result.limb[i] = product[i] + (i < 15 ? 38 * product[i + 16] : 0);
    }
    Carry(result);
    return result;
}

FieldElement FieldSquare(const FieldElement& a)
{
    return FieldMul(a, a);
}

FieldElement FieldInvert(const FieldElement& a)
{
    FieldElement a11;
    const FieldElement e250 = Pow2250Minus1(a, a11);
    return FieldMul(SquareTimes(e250, 5), a11);  // a^(2^255 - 32 + 11) = a^(p - 2)
}

FieldElement FieldPowP58(const FieldElement& a)
{
    FieldElement a11;
    const FieldElement e250 = Pow2250Minus1(a, a11);
    return FieldMul(SquareTimes(e250, 2), a);  // a^(2^252 - 3) = a^((p - 5) / 8)
}

bool FieldEqual(const FieldElement& a, const FieldElement& b)
{
    uint8_t left[32], right[32];
    FieldToBytes(left, a);
    FieldToBytes(right, b);
    return std::memcmp(left, right, 32) == 0;
}

bool FieldIsZero(const FieldElement& a)
{
    return FieldEqual(a, FieldFromInt(0));
}

bool FieldIsOdd(const FieldElement& a)
{
    uint8_t bytes[32];
    FieldToBytes(bytes, a);
    return (bytes[0] & 1) != 0;
}
