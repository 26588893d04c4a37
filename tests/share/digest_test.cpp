// HashFile: digests of real files, the underscore text for what cannot be hashed, the size limit.
#include <gtest/gtest.h>
#include "runtime/iocp.h"
#include "runtime/text.h"
#include "share/digest.h"
#include "share/sha1.h"

#include <windows.h>

namespace {

class DigestTest : public testing::Test {
protected:
    void SetUp() override
    {
        IocpStart();
        base = GetDirectoryPart(GetModulePath()) + L"\\digest-test";
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

// Files from 8 MiB on are read into a buffer touched first on two threads; the digest is the same.
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
