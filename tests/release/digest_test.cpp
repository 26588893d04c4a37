// HashFile: digests of real files, the underscore text for what cannot be hashed, the size limit.
#include <gtest/gtest.h>
#include "runtime/iocp.h"
#include "runtime/text.h"
#include "release/digest.h"
#include "release/item_objects.h"
#include "crypto/sha1.h"
#include "support/test_path.h"

#include <windows.h>
#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

// Bytes that differ from piece to piece and inside each, so that a piece read twice or skipped
// changes the digest.
std::string Pattern(size_t size, uint32_t seed)
{
    std::string data(size, '\0');
    uint32_t x = seed * 2654435761u + 1;
    for (size_t i = 0; i < size; ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        data[i] = static_cast<char>(x >> 24);
    }
    return data;
}

std::wstring Sha1Hex(const char* data, size_t size)
{
    uint8_t digest[kSha1DigestSize];
    Sha1Buffer(data, size, digest);
    return BytesToHex(digest, sizeof(digest));
}

bool IsHexDigest(const std::wstring& text)
{
    return text.size() == 40 && text.find_first_not_of(L"0123456789ABCDEF") == std::wstring::npos;
}

const std::wstring kUnderscores(40, L'_');

class DigestTest : public testing::Test {
protected:
    void SetUp() override
    {
        IocpStart();
        base = TestPath(L"digest-");
        CreateDirectoryW(base.c_str(), nullptr);
    }
    void TearDown() override { IocpShutdown(); }

    std::wstring Make(const wchar_t* name, const std::string& data)
    {
        std::wstring path = base + L"\\" + name;
        HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        DWORD written;
        WriteFile(file, data.data(), static_cast<DWORD>(data.size()), &written, nullptr);
        CloseHandle(file);
        return path;
    }

    // A file of `size` zero bytes, made without writing them.
    std::wstring MakeZeros(const wchar_t* name, int64_t size)
    {
        std::wstring path = base + L"\\" + name;
        HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        LARGE_INTEGER end;
        end.QuadPart = size;
        SetFilePointerEx(file, end, nullptr, FILE_BEGIN);
        SetEndOfFile(file);
        CloseHandle(file);
        return path;
    }

    std::wstring base;
};

}  // namespace

TEST_F(DigestTest, KnownContents)
{
    FileDigest abc = HashFile(Make(L"abc.txt", "abc"));
    EXPECT_EQ(abc.hash, L"A9993E364706816ABA3E25717850C26C9CD0D89D");
    EXPECT_EQ(abc.size, 3u);
    FileDigest empty = HashFile(Make(L"empty.txt", ""));
    EXPECT_EQ(empty.hash, L"DA39A3EE5E6B4B0D3255BFEF95601890AFD80709");
    EXPECT_EQ(empty.size, 0u);
}

TEST_F(DigestTest, MissingPathAndFolderGiveUnderscores)
{
    FileDigest missing = HashFile(base + L"\\missing.bin");
    EXPECT_EQ(missing.hash, std::wstring(40, L'_'));
    EXPECT_EQ(missing.size, 0u);
    FileDigest folder = HashFile(base);
    EXPECT_EQ(folder.hash, std::wstring(40, L'_'));
    EXPECT_EQ(folder.size, 0u);
}

TEST_F(DigestTest, LargestHashedSizeAndOneByteMore)
{
    FileDigest limit = HashFile(MakeZeros(L"limit.bin", 0x10000000));
    EXPECT_EQ(limit.hash, L"7B91DBDC56C5781EDF6C8847B4AA6965566C5C75");
    EXPECT_EQ(limit.size, 0x10000000u);
    FileDigest over = HashFile(MakeZeros(L"over.bin", 0x10000001));
    EXPECT_EQ(over.hash, std::wstring(40, L'_'));
    EXPECT_EQ(over.size, 0x10000001u);
    FileDigest big = HashFile(MakeZeros(L"big.bin", 300ll << 20));
    EXPECT_EQ(big.hash, std::wstring(40, L'_'));
    EXPECT_EQ(big.size, 300ull << 20);
    DeleteFileW((base + L"\\limit.bin").c_str());
    DeleteFileW((base + L"\\over.bin").c_str());
    DeleteFileW((base + L"\\big.bin").c_str());
}

// A caller's higher limit (a manifest of the objects format) has files of any size hashed, in
// pieces; a lower one refuses what lies above it.
TEST_F(DigestTest, AGivenLimitReplacesTheDefault)
{
    std::wstring big = MakeZeros(L"big.bin", 300ll << 20);
    std::wstring small = Make(L"small.txt", "abc");
    FileDigest digest = HashFile(big, kMaxObjectsSize);
    EXPECT_EQ(digest.hash, L"7A8BF8EFC28275F9957F283C4DEA66CC98B0C29B");
    EXPECT_EQ(digest.size, 300ull << 20);
    for (unsigned threads : {1u, 2u}) {
        std::vector<FileDigest> digests = HashFiles({small, big}, threads, kMaxObjectsSize);
        ASSERT_EQ(digests.size(), 2u);
        EXPECT_EQ(digests[0].hash, L"A9993E364706816ABA3E25717850C26C9CD0D89D");
        EXPECT_EQ(digests[1].hash, L"7A8BF8EFC28275F9957F283C4DEA66CC98B0C29B");
    }
    EXPECT_EQ(HashFiles({big}, 1)[0].hash, kUnderscores);
    FileDigest belowLimit = HashFile(small, 2);
    EXPECT_EQ(belowLimit.hash, kUnderscores);
    EXPECT_EQ(belowLimit.size, 3u);
    DeleteFileW(big.c_str());
    DeleteFileW(small.c_str());
}

// A file of several pieces, read on a worker while the hashing runs: the digest is the same.
TEST_F(DigestTest, LargeFileReadIntoATouchedBuffer)
{
    std::string data(9u << 20, '\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>((i * 2654435761u) >> 13);
    uint8_t expected[kSha1DigestSize];
    Sha1Buffer(data.data(), data.size(), expected);
    FileDigest digest = HashFile(Make(L"large.bin", data));
    EXPECT_EQ(digest.hash, BytesToHex(expected, sizeof(expected)));
    EXPECT_EQ(digest.size, data.size());
    DeleteFileW((base + L"\\large.bin").c_str());
}

// HashFiles on several threads gives each path the digest that HashFile gives it, in path order:
// small files, missing ones, a folder, empty ones and two large ones (held one at a time).
TEST_F(DigestTest, HashFilesKeepsPathOrderAndResults)
{
    std::vector<std::wstring> paths;
    for (int i = 0; i < 60; ++i) {
        std::wstring name = L"many" + std::to_wstring(i) + L".bin";
        if (i % 7 == 3)
            paths.push_back(base + L"\\missing-" + name);
        else if (i % 11 == 5)
            paths.push_back(base);
        else
            paths.push_back(Make(name.c_str(), std::string(static_cast<size_t>(i) * 997, static_cast<char>('a' + i % 26))));
    }
    paths.insert(paths.begin() + 10, MakeZeros(L"large-a.bin", 9 << 20));
    paths.insert(paths.begin() + 11, MakeZeros(L"large-b.bin", (9 << 20) + 1));
    std::vector<FileDigest> expected;
    for (const std::wstring& path : paths)
        expected.push_back(HashFile(path));
    for (unsigned threads : {1u, 2u, 4u, 100u}) {
        std::vector<FileDigest> digests = HashFiles(paths, threads);
        ASSERT_EQ(digests.size(), paths.size());
        for (size_t i = 0; i < paths.size(); ++i) {
            EXPECT_EQ(digests[i].hash, expected[i].hash) << i << " on " << threads;
            EXPECT_EQ(digests[i].size, expected[i].size) << i << " on " << threads;
        }
    }
    EXPECT_EQ(expected[10].size, 9u << 20);
    EXPECT_EQ(expected[3].hash, std::wstring(40, L'_'));
    EXPECT_TRUE(HashFiles({}, 4).empty());
    for (const std::wstring& path : paths) {
        if (path != base)
            DeleteFileW(path.c_str());
    }
}

// Sizes around the piece boundaries: one read for up to a piece, pieces on a worker above.
TEST_F(DigestTest, SizesAroundPieceBoundaries)
{
    const size_t piece = kHashPieceSize;
    const std::string data = Pattern(5 * piece + 4099, 7);
    // The list ends with a full piece and a small file after it.
    const std::vector<size_t> sizes = {0, 1, 63, 64, 65, piece - 1, piece, piece + 1, 2 * piece - 1, 2 * piece,
                                       2 * piece + 1, 3 * piece + 17, 5 * piece + 4099, piece, 10};
    std::vector<std::wstring> paths;
    for (size_t size : sizes) {
        std::wstring name = L"boundary" + std::to_wstring(paths.size()) + L".bin";
        paths.push_back(Make(name.c_str(), data.substr(0, size)));
        FileDigest digest = HashFile(paths.back());
        EXPECT_EQ(digest.hash, Sha1Hex(data.data(), size)) << size;
        EXPECT_EQ(digest.size, size) << size;
    }
    // The threads of HashFiles read every small file into one buffer of their own: a file after a
    // larger one is hashed over its own bytes only.
    std::vector<FileDigest> digests = HashFiles(paths, 1);
    for (size_t i = 0; i < sizes.size(); ++i) {
        EXPECT_EQ(digests[i].hash, Sha1Hex(data.data(), sizes[i])) << sizes[i];
        EXPECT_EQ(digests[i].size, sizes[i]) << sizes[i];
    }
    for (const std::wstring& path : paths)
        DeleteFileW(path.c_str());
}

// A file that another handle holds open for writing (sharing read and write) is hashed as it is
// on disk, in one read and in pieces.
TEST_F(DigestTest, FileOpenForWritingElsewhereIsHashed)
{
    for (size_t size : {size_t(1000), size_t(kHashPieceSize) * 2 + 5}) {
        const std::string data = Pattern(size, 11);
        std::wstring path = Make(L"shared.bin", data);
        HANDLE writer = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(writer, INVALID_HANDLE_VALUE);
        FileDigest digest = HashFile(path);
        EXPECT_EQ(digest.hash, Sha1Hex(data.data(), data.size())) << size;
        EXPECT_EQ(digest.size, size);
        CloseHandle(writer);
    }
    DeleteFileW((base + L"\\shared.bin").c_str());
}

// A file that cannot be opened (held by a handle that shares nothing) gives the underscores with
// the size its attributes report, whatever its size.
TEST_F(DigestTest, FileThatCannotBeOpenedGivesUnderscoresWithItsSize)
{
    for (size_t size : {size_t(0), size_t(1000), size_t(kHashPieceSize) + 1}) {
        std::wstring path = Make(L"locked.bin", Pattern(size, 3));
        HANDLE holder = CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(holder, INVALID_HANDLE_VALUE);
        FileDigest digest = HashFile(path);
        EXPECT_EQ(digest.hash, kUnderscores) << size;
        EXPECT_EQ(digest.size, size);
        CloseHandle(holder);
        EXPECT_EQ(HashFile(path).hash, Sha1Hex(Pattern(size, 3).data(), size)) << size;
    }
    DeleteFileW((base + L"\\locked.bin").c_str());
}

namespace {

// Hashes `path` `rounds` times while `change` runs again and again on another thread; the
// digests in the order they were made.
template <typename Change>
std::vector<FileDigest> HashWhileChanging(const std::wstring& path, int rounds, Change change)
{
    std::atomic<bool> stop{false};
    std::atomic<int> changes{0};
    std::thread writer([&] {
        HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                  0, nullptr);
        for (int i = 0; !stop; ++i) {
            change(file, i);
            ++changes;
        }
        CloseHandle(file);
    });
    // The hashing starts once the file has begun to change.
    while (changes == 0)
        SwitchToThread();
    std::vector<FileDigest> digests;
    for (int i = 0; i < rounds; ++i)
        digests.push_back(HashFile(path));
    stop = true;
    writer.join();
    return digests;
}

void WriteAt(HANDLE file, uint64_t position, const char* data, size_t size)
{
    LARGE_INTEGER at;
    at.QuadPart = static_cast<LONGLONG>(position);
    SetFilePointerEx(file, at, nullptr, FILE_BEGIN);
    DWORD written;
    WriteFile(file, data, static_cast<DWORD>(size), &written, nullptr);
}

void CutTo(HANDLE file, uint64_t size)
{
    LARGE_INTEGER at;
    at.QuadPart = static_cast<LONGLONG>(size);
    SetFilePointerEx(file, at, nullptr, FILE_BEGIN);
    SetEndOfFile(file);
}

}  // namespace

// A file that only grows while it is hashed (appends of the same bytes): every digest is either
// that of exactly the first `size` bytes, `size` being the size it reports, or the underscores.
// Never a digest of anything else.
TEST_F(DigestTest, FileThatGrowsWhileHashed)
{
    const size_t piece = kHashPieceSize;
    const std::string data = Pattern(3 * piece + 777, 5);
    const size_t step = 65536 + 13;
    std::wstring path = Make(L"growing.bin", data.substr(0, piece / 2));
    size_t current = piece / 2;
    std::vector<FileDigest> digests = HashWhileChanging(path, 12, [&](HANDLE file, int) {
        size_t next = std::min(current + step, data.size());
        if (next == current) {
            SwitchToThread();
            return;
        }
        WriteAt(file, current, data.data() + current, next - current);
        current = next;
    });
    for (const FileDigest& digest : digests) {
        ASSERT_LE(digest.size, data.size());
        if (digest.hash != kUnderscores) {
            EXPECT_EQ(digest.hash, Sha1Hex(data.data(), static_cast<size_t>(digest.size))) << digest.size;
        }
    }
    FileDigest settled = HashFile(path);
    EXPECT_EQ(settled.hash, Sha1Hex(data.data(), current));
    EXPECT_EQ(settled.size, current);
    DeleteFileW(path.c_str());
}

// A file cut short and grown again while it is hashed: a read that meets the cut gives the
// underscores, and a read beside a cut may even see bytes that the cut cleared, so each result
// is only checked for its form and its bound (a size caught in the middle of a long write is
// any size); the call always returns. Once the file holds still,
// its digest is that of what it holds.
TEST_F(DigestTest, FileThatShrinksWhileHashed)
{
    const size_t piece = kHashPieceSize;
    const std::string data = Pattern(3 * piece + 777, 6);
    const size_t lengths[] = {piece / 2, 3 * piece + 777, piece + 3, 2 * piece, 100, 3 * piece + 777};
    std::wstring path = Make(L"shrinking.bin", data.substr(0, lengths[0]));
    size_t current = lengths[0];
    std::vector<FileDigest> digests = HashWhileChanging(path, 12, [&](HANDLE file, int i) {
        size_t next = lengths[static_cast<size_t>(i) % (sizeof(lengths) / sizeof(lengths[0]))];
        if (next < current)
            CutTo(file, next);
        else
            WriteAt(file, current, data.data() + current, next - current);
        current = next;
    });
    for (const FileDigest& digest : digests) {
        EXPECT_LE(digest.size, data.size());
        EXPECT_TRUE(IsHexDigest(digest.hash) || digest.hash == kUnderscores);
    }
    FileDigest settled = HashFile(path);
    EXPECT_EQ(settled.hash, Sha1Hex(data.data(), current));
    EXPECT_EQ(settled.size, current);
    DeleteFileW(path.c_str());
}

// A file rewritten in place while it is hashed: each result has the file's size and is a digest or
// the underscores (a digest of a mixture of the two contents equals neither, so the updater would
// fetch the file again); the call always returns. Once the writes stop, the digest is that of the
// last contents.
TEST_F(DigestTest, FileRewrittenWhileHashed)
{
    const size_t size = 2 * size_t(kHashPieceSize) + 999;
    const std::string a = Pattern(size, 21), b = Pattern(size, 22);
    std::wstring path = Make(L"rewritten.bin", a);
    bool lastWasA = true;
    std::vector<FileDigest> digests = HashWhileChanging(path, 8, [&](HANDLE file, int i) {
        lastWasA = i % 2 != 0;
        WriteAt(file, 0, (lastWasA ? a : b).data(), size);
    });
    for (const FileDigest& digest : digests) {
        EXPECT_EQ(digest.size, size);
        EXPECT_TRUE(IsHexDigest(digest.hash) || digest.hash == kUnderscores);
    }
    EXPECT_EQ(HashFile(path).hash, Sha1Hex((lastWasA ? a : b).data(), size));
    DeleteFileW(path.c_str());
}
