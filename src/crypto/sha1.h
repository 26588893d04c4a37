// SHA-1 message digest: an incremental context and a one-shot function over a buffer,
// with two block functions, one using the x86 SHA instructions and one in portable C++.
// The fastest one this CPU supports is picked once, at the first use.
#pragma once
#include <cstddef>
#include <cstdint>

constexpr size_t kSha1BlockSize = 64;
constexpr size_t kSha1DigestSize = 20;

// Folds `blockCount` consecutive 64-byte blocks into the five state words.
using Sha1Compress = void (*)(uint32_t state[5], const uint8_t* blocks, size_t blockCount);

// The portable block function; runs on every CPU.
void Sha1CompressPortable(uint32_t state[5], const uint8_t* blocks, size_t blockCount);
// True when this CPU has the SHA instructions (and SSSE3, SSE4.1) and the build targets x86.
bool Sha1HardwareAvailable();
// The block function built on the SHA instructions, or null when Sha1HardwareAvailable() is false.
Sha1Compress Sha1HardwareCompress();
// The hardware block function when available, otherwise the portable one.
Sha1Compress Sha1DefaultCompress();

struct Sha1Context {
    uint32_t state[5];
    uint64_t length;                 // message bytes taken so far
    uint8_t buffer[kSha1BlockSize];  // the partial block: length % 64 bytes
    Sha1Compress compress;
};

// compress null: Sha1DefaultCompress().
void Sha1Init(Sha1Context& context, Sha1Compress compress = nullptr);
void Sha1Update(Sha1Context& context, const void* data, size_t size);
// Pads, writes the digest and leaves the context to be initialised again before reuse.
void Sha1Final(Sha1Context& context, uint8_t digest[kSha1DigestSize]);

// The digest of one buffer; whole blocks are hashed in place, without copying.
void Sha1Buffer(const void* data, size_t size, uint8_t digest[kSha1DigestSize], Sha1Compress compress = nullptr);
