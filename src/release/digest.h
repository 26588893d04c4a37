// FileDigest: the SHA-1 and size of a local file, as the update compares them with the manifest.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

// The text of a digest that could not be made; it never equals a real digest.
extern const wchar_t kNoDigest[];

struct FileDigest {
    std::wstring hash = kNoDigest;  // 40 upper-case hexadecimal digits, or 40 underscores
    uint64_t size = 0;              // 0 for a missing file or a folder
};

// Files above this size are never hashed, unless the caller gives a higher limit (the files of a
// manifest of the objects format may be of any size).
constexpr uint64_t kMaxHashedSize = 0x10000000;

// Files up to this size are read in one piece; larger ones in smaller pieces, read on a
// completion-port worker while the piece before is hashed.
constexpr uint32_t kHashPieceSize = 4u << 20;

// The SHA-1 of the file's first `size` bytes, `size` being what its attributes report. Never
// fails: what cannot be read gives the underscore text (with the real size when only the size is
// known), and so does a file above `limit` or one that ends before `size` bytes have been read.
FileDigest HashFile(const std::wstring& path, uint64_t limit = kMaxHashedSize);
// HashFile of every path on up to `threads` threads, the caller's among them; the others join
// only when the files would keep the caller busy for long. The digests in the order of the paths.
std::vector<FileDigest> HashFiles(const std::vector<std::wstring>& paths, unsigned threads,
                                  uint64_t limit = kMaxHashedSize);
