// Readers of the texts a signed release carries: the publisher's public key, the body of a
// signature file and a SHA-256 digest, and the digest written back as text. Pure functions:
// anything but the exact form gives false.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

#include "crypto/ed25519.h"
#include "crypto/sha256.h"

// Exactly 64 hexadecimal digits, either case.
bool ReadPublicKeyHex(const std::wstring& text, uint8_t key[kEd25519PublicKeySize]);
// 128 hexadecimal digits, either case, with only spaces, tabs, CR and LF around them.
bool ReadSignatureBody(const void* body, size_t length, uint8_t signature[kEd25519SignatureSize]);
// Exactly 64 hexadecimal digits, either case.
bool ReadSha256Hex(const std::wstring& text, uint8_t digest[kSha256DigestSize]);
// 64 upper-case hexadecimal digits, as the program writes SHA-1 digests.
std::wstring Sha256ToText(const uint8_t digest[kSha256DigestSize]);
