// Fuzz target of signed mode's verification: the input is a public key (32 bytes), a signature
// (64 bytes, R then S) and the message (the rest), each in a block of exactly its size. A key that
// verifies must be usable and S below the group order. The same input is also hashed with SHA-256
// and SHA-512 in one call and in two parts, split where the first two bytes say; the digests must
// agree (SHA-256 with the portable block function once and the fastest one the other time).
#include "crypto/ed25519.h"
#include "crypto/sha256.h"
#include "crypto/sha512.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "ed25519: %s\n", what);
    std::abort();
}

std::unique_ptr<uint8_t[]> Exact(const uint8_t* data, size_t size)
{
    auto block = std::make_unique<uint8_t[]>(size);
    if (size)
        std::memcpy(block.get(), data, size);
    return block;
}

// Feeds the input in two parts, split at `split`, and compares the digest with the one-call `whole`.
template <size_t kDigestSize, class Context, class Init, class Update, class Final>
void CheckSplit(const char* what, const uint8_t* whole, Init init, Update update, Final final, const uint8_t* data,
                size_t size, size_t split)
{
    Context context;
    init(context);
    update(context, data, split);
    update(context, data + split, size - split);
    uint8_t parts[kDigestSize];
    final(context, parts);
    if (std::memcmp(whole, parts, kDigestSize) != 0)
        Fail(what);
}

void CheckDigests(const uint8_t* data, size_t size, size_t split)
{
    uint8_t whole256[kSha256DigestSize];
    Sha256Buffer(data, size, whole256, Sha256CompressPortable);
    CheckSplit<kSha256DigestSize, Sha256Context>("the SHA-256 digests disagree", whole256,
                                                 [](Sha256Context& context) { Sha256Init(context); }, Sha256Update,
                                                 Sha256Final, data, size, split);
    uint8_t whole512[kSha512DigestSize];
    Sha512Buffer(data, size, whole512);
    CheckSplit<kSha512DigestSize, Sha512Context>("the SHA-512 digests disagree", whole512, Sha512Init, Sha512Update,
                                                 Sha512Final, data, size, split);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size >= 2)
        CheckDigests(data, size, (static_cast<size_t>(data[0]) << 8 | data[1]) % (size + 1));
    if (size < kEd25519PublicKeySize + kEd25519SignatureSize)
        return 0;
    auto key = Exact(data, kEd25519PublicKeySize);
    auto signature = Exact(data + kEd25519PublicKeySize, kEd25519SignatureSize);
    size_t length = size - kEd25519PublicKeySize - kEd25519SignatureSize;
    auto message = Exact(data + kEd25519PublicKeySize + kEd25519SignatureSize, length);
    bool usable = Ed25519PublicKeyUsable(key.get());
    bool verified = Ed25519Verify(key.get(), message.get(), length, signature.get());
    if (verified && !usable)
        Fail("a signature verified under an unusable key");
    // The group order L is just above 2^252: an S at or above 2^253 can never be below it.
    if (verified && (signature[kEd25519SignatureSize - 1] & 0xE0) != 0)
        Fail("a signature verified with S above the group order");
    return 0;
}
