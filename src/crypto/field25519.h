// Arithmetic in the field of integers modulo p = 2^255 - 19, for Ed25519 signature checks.
// An element is 16 limbs of 16 bits in 64-bit integers, so every product fits in 64 bits
// without a 128-bit type. Results leave each limb in [0, 2^16], the lowest up to 2^16 + 37;
// an element is only fully reduced when written out as bytes.
#pragma once
#include <cstdint>

struct FieldElement {
    int64_t limb[16];  // value = sum of limb[i] * 2^(16 i)
};

FieldElement FieldFromInt(int64_t value);  // value >= 0
// The 255 low bits of 32 little-endian bytes; the top bit is ignored.
FieldElement FieldFromBytes(const uint8_t bytes[32]);
// The canonical encoding: the value below p, 32 little-endian bytes.
void FieldToBytes(uint8_t bytes[32], const FieldElement& a);

FieldElement FieldAdd(const FieldElement& a, const FieldElement& b);
FieldElement FieldSub(const FieldElement& a, const FieldElement& b);
FieldElement FieldNegate(const FieldElement& a);
FieldElement FieldMul(const FieldElement& a, const FieldElement& b);
FieldElement FieldSquare(const FieldElement& a);
// a^(p-2), the inverse of a non-zero a (0 for 0).
FieldElement FieldInvert(const FieldElement& a);
// a^((p-5)/8), the power from which square roots are made.
FieldElement FieldPowP58(const FieldElement& a);

bool FieldEqual(const FieldElement& a, const FieldElement& b);
bool FieldIsZero(const FieldElement& a);
// The low bit of the canonical encoding: the "sign" of an x coordinate.
bool FieldIsOdd(const FieldElement& a);
