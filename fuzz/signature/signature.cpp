// Fuzz target of the signed-release text readers: the input, decoded from UTF-8, is read as a
// public key and as a SHA-256 digest, and as bytes as a signature file's body. What a reader
// accepts must be the digits it was given (either case), around blanks only for the signature;
// a digest written as text must read back as the same digest, for the first 32 input bytes too.
#include "runtime/text.h"
#include "release/signature.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "signature: %s\n", what);
    std::abort();
}

bool SameDigits(const uint8_t* bytes, size_t count, const std::wstring& text)
{
    return LowerAscii(BytesToHex(bytes, count)) == LowerAscii(text);
}

void CheckRoundTrip(const uint8_t digest[kSha256DigestSize])
{
    std::wstring text = Sha256ToText(digest);
    uint8_t again[kSha256DigestSize];
    if (text.size() != 2 * kSha256DigestSize || text.find_first_not_of(L"0123456789ABCDEF") != std::wstring::npos)
        Fail("a digest not written as 64 upper-case digits");
    if (!ReadSha256Hex(text, again) || std::memcmp(digest, again, kSha256DigestSize) != 0)
        Fail("a digest text that does not read back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    auto bytes = std::make_unique<char[]>(size);
    if (size)
        std::memcpy(bytes.get(), data, size);
    std::wstring text = Utf8ToWide(bytes.get(), static_cast<ptrdiff_t>(size));

    uint8_t key[kEd25519PublicKeySize];
    if (ReadPublicKeyHex(text, key) && !SameDigits(key, sizeof key, text))
        Fail("a key read from other than its digits");

    uint8_t digest[kSha256DigestSize];
    if (ReadSha256Hex(text, digest)) {
        if (!SameDigits(digest, sizeof digest, text))
            Fail("a digest read from other than its digits");
        CheckRoundTrip(digest);
    }

    uint8_t signature[kEd25519SignatureSize];
    if (ReadSignatureBody(bytes.get(), size, signature)) {
        std::string body(bytes.get(), size);
        size_t first = body.find_first_not_of(" \t\r\n");
        size_t last = body.find_last_not_of(" \t\r\n");
        if (first == std::string::npos || last + 1 - first != 2 * kEd25519SignatureSize ||
            !SameDigits(signature, sizeof signature, Utf8ToWide(body.substr(first, last + 1 - first))))
            Fail("a signature read from other than its digits");
    }

    if (size >= kSha256DigestSize)
        CheckRoundTrip(data);
    return 0;
}
