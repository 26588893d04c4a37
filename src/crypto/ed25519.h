// Ed25519 signature verification (RFC 8032), the check a signed release rests on. Keys and
// signatures are public, so nothing here needs to run in constant time.
#pragma once
#include <cstddef>
#include <cstdint>

constexpr size_t kEd25519PublicKeySize = 32;
constexpr size_t kEd25519SignatureSize = 64;

// True when the key is the canonical encoding of a curve point whose order is not small: a key
// of small order would let one signature pass for many messages.
bool Ed25519PublicKeyUsable(const uint8_t publicKey[kEd25519PublicKeySize]);

// True when `signature` (R, then S) is the key's signature over the message: the key is usable,
// R decodes, S is below the group order L and [S]B = R + [k]A with k = SHA-512(R || A || M) mod L.
bool Ed25519Verify(const uint8_t publicKey[kEd25519PublicKeySize], const uint8_t* message, size_t length,
                   const uint8_t signature[kEd25519SignatureSize]);
