// BodyDigest: the SHA-1 of a download, and its SHA-256 for an item of a signed release, taken from
// the batches as the body sink writes them to the file, so that a download is verified without
// reading it back from disk.
#pragma once
#include "http/body_sink.h"
#include "release/digest.h"
#include "crypto/sha1.h"
#include "crypto/sha256.h"

#include <cstddef>
#include <cstdint>
#include <string>

class BodyDigest final : public WrittenBody {
public:
    // Bytes beyond `limit` are counted but not hashed, as HashFile does not hash such a file.
    explicit BodyDigest(bool withSha256, uint64_t limit = kMaxHashedSize) : withSha256(withSha256), limit(limit)
    {
        Restart();
    }

    void Restart() override;
    void Take(const void* bytes, size_t count) override;

    // The bytes taken since the last restart.
    uint64_t Size() const { return size; }
    // What HashFile gives for a file of the bytes taken: their SHA-1 and count, the underscores
    // beyond the limit.
    FileDigest Digest() const;
    // True when the SHA-256 of the bytes taken equals the 64 hexadecimal digits of `expected`.
    bool MatchesSha256(const std::wstring& expected) const;

private:
    bool withSha256;
    uint64_t limit;
    uint64_t size = 0;
    Sha1Context sha1;
    Sha256Context sha256;
};
