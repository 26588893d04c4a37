// Ed25519 verification: points of the curve -x^2 + y^2 = 1 + d x^2 y^2 over the field of
// field25519.h in extended coordinates, scalars modulo the group order L, and the check itself.
#include "crypto/ed25519.h"

#include <cstring>

#include "crypto/field25519.h"
#include "crypto/sha512.h"

namespace {

// x = X/Z, y = Y/Z, x*y = T/Z.
struct Point {
    FieldElement x, y, z, t;
};

struct Curve {
    FieldElement d;           // -121665/121666
    FieldElement d2;          // 2d
    FieldElement sqrtMinus1;  // a square root of -1
    Point base;               // B, the point with y = 4/5 and even x
};

// L = 2^252 + 27742317777372353535851937790883648493, little-endian.
const uint8_t kGroupOrder[32] = {
    0xED, 0xD3, 0xF5, 0x5C, 0x1A, 0x63, 0x12, 0x58, 0xD6, 0x9C, 0xF7, 0xA2, 0xDE, 0xF9, 0xDE, 0x14,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10,
};

Point Identity()
{
    return {FieldFromInt(0), FieldFromInt(1), FieldFromInt(1), FieldFromInt(0)};
}

// The addition law for a = -1 in extended coordinates. It is complete (d is not a square), so
// it also doubles and takes the identity.
Point Add(const Point& p, const Point& q, const Curve& curve)
{
    const FieldElement a = FieldMul(FieldSub(p.y, p.x), FieldSub(q.y, q.x));
    const FieldElement b = FieldMul(FieldAdd(p.y, p.x), FieldAdd(q.y, q.x));
    const FieldElement c = FieldMul(FieldMul(p.t, q.t), curve.d2);
    const FieldElement zz = FieldMul(p.z, q.z);
    const FieldElement d = FieldAdd(zz, zz);
    const FieldElement e = FieldSub(b, a);
    const FieldElement f = FieldSub(d, c);
    const FieldElement g = FieldAdd(d, c);
    const FieldElement h = FieldAdd(b, a);
    return {FieldMul(e, f), FieldMul(g, h), FieldMul(f, g), FieldMul(e, h)};
}

Point Negate(const Point& p)
{
    return {FieldNegate(p.x), p.y, p.z, FieldNegate(p.t)};
}

bool SamePoint(const Point& p, const Point& q)
{
    return FieldEqual(FieldMul(p.x, q.z), FieldMul(q.x, p.z)) && FieldEqual(FieldMul(p.y, q.z), FieldMul(q.y, p.z));
}

// Reads a point: y from the low 255 bits, which must be below p, and the sign of x from the top
// bit. x comes from x^2 = (y^2 - 1) / (d y^2 + 1), which must have a root.
bool Decode(const uint8_t bytes[32], const Curve& curve, Point& point)
{
    const FieldElement y = FieldFromBytes(bytes);
    uint8_t canonical[32];
    FieldToBytes(canonical, y);
    if (std::memcmp(canonical, bytes, 31) != 0 || canonical[31] != (bytes[31] & 0x7F)) {
        return false;
    }
    const bool xOdd = (bytes[31] & 0x80) != 0;

    const FieldElement one = FieldFromInt(1);
    const FieldElement y2 = FieldSquare(y);
    const FieldElement u = FieldSub(y2, one);
    const FieldElement v = FieldAdd(FieldMul(curve.d, y2), one);
    // The candidate root u v^3 (u v^7)^((p-5)/8); it is right, right but for a factor sqrt(-1),
    // or u/v has no root.
    const FieldElement v3 = FieldMul(FieldSquare(v), v);
    const FieldElement v7 = FieldMul(FieldSquare(v3), v);
    FieldElement x = FieldMul(FieldMul(u, v3), FieldPowP58(FieldMul(u, v7)));
    const FieldElement vx2 = FieldMul(v, FieldSquare(x));
    if (!FieldEqual(vx2, u)) {
        if (!FieldEqual(vx2, FieldNegate(u))) {
            return false;
        }
        x = FieldMul(x, curve.sqrtMinus1);
    }
    if (FieldIsZero(x) && xOdd) {
        return false;
    }
    if (FieldIsOdd(x) != xOdd) {
        x = FieldNegate(x);
    }
    point = {x, y, one, FieldMul(x, y)};
    return true;
}

Curve MakeCurve()
{
    Curve curve;
    curve.d = FieldNegate(FieldMul(FieldFromInt(121665), FieldInvert(FieldFromInt(121666))));
    curve.d2 = FieldAdd(curve.d, curve.d);
    // 2 is not a square modulo p, so 2^((p-1)/4) = 2 (2^((p-5)/8))^2 is a square root of -1.
    const FieldElement two = FieldFromInt(2);
    curve.sqrtMinus1 = FieldMul(two, FieldSquare(FieldPowP58(two)));
    // The encoding of B: y = 4/5, x even.
    uint8_t base[32];
    std::memset(base, 0x66, sizeof base);
    base[0] = 0x58;
    Decode(base, curve, curve.base);
    return curve;
}

const Curve& TheCurve()
{
    static const Curve curve = MakeCurve();
    return curve;
}

// The curve has 8 L points; a point of order 1, 2, 4 or 8 becomes the identity times 8.
bool HasSmallOrder(const Point& p, const Curve& curve)
{
    Point q = p;
    for (int i = 0; i < 3; ++i) {
        q = Add(q, q, curve);
    }
    return SamePoint(q, Identity());
}

bool DecodeUsableKey(const uint8_t publicKey[32], const Curve& curve, Point& point)
{
    return Decode(publicKey, curve, point) && !HasSmallOrder(point, curve);
}

// Scalars are 32 little-endian bytes.
bool BelowOrder(const uint8_t scalar[32])
{
    for (int i = 31; i >= 0; --i) {
        if (scalar[i] != kGroupOrder[i]) {
            return scalar[i] < kGroupOrder[i];
        }
    }
    return false;
}

// The 64-byte little-endian number modulo L, one bit at a time from the top: the remainder
// stays below L < 2^253, so doubling it and adding a bit never overflows 32 bytes.
void ReduceModOrder(const uint8_t wide[64], uint8_t scalar[32])
{
    std::memset(scalar, 0, 32);
    for (int bit = 511; bit >= 0; --bit) {
        int carry = (wide[bit / 8] >> (bit % 8)) & 1;
        for (int i = 0; i < 32; ++i) {
            const int doubled = scalar[i] * 2 + carry;
            scalar[i] = uint8_t(doubled);
            carry = doubled >> 8;
        }
        if (!BelowOrder(scalar)) {
            int borrow = 0;
            for (int i = 0; i < 32; ++i) {
                const int difference = scalar[i] - kGroupOrder[i] - borrow;
                borrow = difference < 0 ? 1 : 0;
                scalar[i] = uint8_t(difference + borrow * 256);
            }
        }
    }
}

bool Bit(const uint8_t scalar[32], int bit)
{
    return ((scalar[bit / 8] >> (bit % 8)) & 1) != 0;
}

}  // namespace

bool Ed25519PublicKeyUsable(const uint8_t publicKey[kEd25519PublicKeySize])
{
    Point key;
    return DecodeUsableKey(publicKey, TheCurve(), key);
}

bool Ed25519Verify(const uint8_t publicKey[kEd25519PublicKeySize], const uint8_t* message, size_t length,
                   const uint8_t signature[kEd25519SignatureSize])
{
    const Curve& curve = TheCurve();
    const uint8_t* s = signature + 32;
    Point key, r;
    if (!BelowOrder(s) || !DecodeUsableKey(publicKey, curve, key) || !Decode(signature, curve, r)) {
        return false;
    }

    uint8_t hash[kSha512DigestSize];
    Sha512Context context;
    Sha512Init(context);
    Sha512Update(context, signature, 32);
    Sha512Update(context, publicKey, kEd25519PublicKeySize);
    Sha512Update(context, message, length);
    Sha512Final(context, hash);
    uint8_t k[32];
    ReduceModOrder(hash, k);

    // [S]B - [k]A with one doubling per bit for both; S and k are below L < 2^253.
    const Point minusKey = Negate(key);
    Point sum = Identity();
    for (int bit = 252; bit >= 0; --bit) {
        sum = Add(sum, sum, curve);
        if (Bit(s, bit)) {
            sum = Add(sum, curve.base, curve);
        }
        if (Bit(k, bit)) {
            sum = Add(sum, minusKey, curve);
        }
    }
    return SamePoint(sum, r);
}
