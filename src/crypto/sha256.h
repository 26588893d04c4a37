// SHA-256 message digest: an incremental context and a one-shot function over a buffer,
// with two block functions, one using the x86 SHA instructions and one in portable C++.
// The fastest one this CPU supports is picked once, at the first use.
#pragma once
#include <cstddef>
#include <cstdint>

constexpr size_t kSha256BlockSize = 64;
constexpr size_t kSha256DigestSize = 32;

// The 64 round constants, shared by both block functions.
alignas(16) extern const uint32_t kSha256RoundConstants[64];

// Folds `blockCount` consecutive 64-byte blocks into the eight state words.
using Sha256Compress = void (*)(uint32_t state[8], const uint8_t* blocks, size_t blockCount);

// The portable block function; runs on every CPU.
void Sha256CompressPortable(uint32_t state[8], const uint8_t* blocks, size_t blockCount);
// True when this CPU has the SHA instructions (and SSSE3, SSE4.1) and the build targets x86.
bool Sha256HardwareAvailable();
// The block function built on the SHA instructions, or null when Sha256HardwareAvailable() is false.
Sha256Compress Sha256HardwareCompress();
// The hardware block function when available, otherwise the portable one.
Sha256Compress Sha256DefaultCompress();

struct Sha256Context {
    uint32_t state[8];
    uint64_t length;                   // message bytes taken so far
    uint8_t buffer[kSha256BlockSize];  // the partial block: length % 64 bytes
    Sha256Compress compress;
};

// compress null: Sha256DefaultCompress().
void Sha256Init(Sha256Context& context, Sha256Compress compress = nullptr);
void Sha256Update(Sha256Context& context, const void* data, size_t size);
// Pads, writes the digest and leaves the context to be initialised again before reuse.
void Sha256Final(Sha256Context& context, uint8_t digest[kSha256DigestSize]);

// The digest of one buffer; whole blocks are hashed in place, without copying.
void Sha256Buffer(const void* data, size_t size, uint8_t digest[kSha256DigestSize], Sha256Compress compress = nullptr);
