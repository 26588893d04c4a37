// SHA-512 message digest in portable C++: an incremental context and a one-shot function over a
// buffer. Signature verification hashes with it; nothing large goes through it.
#pragma once
#include <cstddef>
#include <cstdint>

constexpr size_t kSha512BlockSize = 128;
constexpr size_t kSha512DigestSize = 64;

struct Sha512Context {
    uint64_t state[8];
    uint64_t length;                   // message bytes taken so far
    uint8_t buffer[kSha512BlockSize];  // the partial block: length % 128 bytes
};

void Sha512Init(Sha512Context& context);
void Sha512Update(Sha512Context& context, const void* data, size_t size);
// Pads, writes the digest and leaves the context to be initialised again before reuse.
void Sha512Final(Sha512Context& context, uint8_t digest[kSha512DigestSize]);

// The digest of one buffer; whole blocks are hashed in place, without copying.
void Sha512Buffer(const void* data, size_t size, uint8_t digest[kSha512DigestSize]);
