// BodyDigest: both digests fed batch by batch and finished on copies, so that they can be read
// at any point.
#include "release/body_digest.h"
#include "runtime/text.h"
#include "release/signature.h"

#include <cstring>

void BodyDigest::Restart()
{
    size = 0;
    Sha1Init(sha1);
    if (withSha256)
        Sha256Init(sha256);
}

void BodyDigest::Take(const void* bytes, size_t count)
{
    size += count;
    // A file beyond the limit is never hashed, so its digest is never needed.
    if (size > limit)
        return;
    Sha1Update(sha1, bytes, count);
    if (withSha256)
        Sha256Update(sha256, bytes, count);
}

FileDigest BodyDigest::Digest() const
{
    FileDigest digest;
    digest.size = size;
    if (size > limit)
        return digest;
    Sha1Context finished = sha1;
    uint8_t bytes[kSha1DigestSize];
    Sha1Final(finished, bytes);
    digest.hash = BytesToHex(bytes, sizeof(bytes));
    return digest;
}

bool BodyDigest::MatchesSha256(const std::wstring& expected) const
{
    if (!withSha256 || size > limit)
        return false;
    uint8_t wanted[kSha256DigestSize], actual[kSha256DigestSize];
    if (!ReadSha256Hex(expected, wanted))
        return false;
    Sha256Context finished = sha256;
    Sha256Final(finished, actual);
    return std::memcmp(wanted, actual, kSha256DigestSize) == 0;
}
