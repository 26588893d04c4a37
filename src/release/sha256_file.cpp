// Sha256OfFile: plain sequential reads into one pooled buffer.
#include "release/sha256_file.h"
#include "runtime/handles.h"
#include "runtime/pool.h"
#include "release/signature.h"

#include <windows.h>
#include <cstring>

namespace {

constexpr DWORD kPieceSize = 1u << 20;

}  // namespace

bool Sha256OfFile(const std::wstring& path, uint8_t digest[kSha256DigestSize])
{
    UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file)
        return false;
    void* piece = PoolAlloc(PoolClassFor(kPieceSize));
    Sha256Context context;
    Sha256Init(context);
    bool read = true;
    for (;;) {
        DWORD got = 0;
        if (!ReadFile(file.Get(), piece, kPieceSize, &got, nullptr)) {
            read = false;
            break;
        }
        if (got == 0)
            break;
        Sha256Update(context, piece, got);
    }
    PoolFree(piece);
    Sha256Final(context, digest);
    return read;
}

bool FileMatchesSha256(const std::wstring& path, const std::wstring& expected)
{
    uint8_t wanted[kSha256DigestSize], actual[kSha256DigestSize];
    return ReadSha256Hex(expected, wanted) && Sha256OfFile(path, actual) &&
           std::memcmp(wanted, actual, kSha256DigestSize) == 0;
}
