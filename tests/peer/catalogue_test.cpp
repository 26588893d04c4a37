// Catalogue: which listed files are shared, the digest cache keyed by size and last-write time,
// names that would leave the root, the attributes checked for every record asked with changed
// files hashed again apart, and the check made again before a file is served.
#include <gtest/gtest.h>
#include "peer/catalogue.h"
#include "runtime/iocp.h"
#include "runtime/text.h"
#include "release/manifest_source.h"
#include "crypto/sha1.h"
#include "support/test_path.h"

#include <windows.h>

#include <array>

namespace {

std::wstring Sha1Text(const std::string& data)
{
    uint8_t digest[kSha1DigestSize];
    Sha1Buffer(data.data(), data.size(), digest);
    return BytesToHex(digest, sizeof(digest));
}

class CatalogueTest : public testing::Test {
protected:
    void SetUp() override
    {
        IocpStart();
        folder = TestPath(L"catalogue-");
        root = folder + L"\\root\\";
        CreateDirectoryW(folder.c_str(), nullptr);
        CreateDirectoryW(root.c_str(), nullptr);
        CreateDirectoryW((root + L"dir").c_str(), nullptr);
        GetSystemTimeAsFileTime(&start);
    }
    void TearDown() override { IocpShutdown(); }

    void Write(const std::wstring& path, const std::string& data)
    {
        HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        ASSERT_NE(file, INVALID_HANDLE_VALUE);
        DWORD written;
        WriteFile(file, data.data(), static_cast<DWORD>(data.size()), &written, nullptr);
        CloseHandle(file);
    }

    // Sets a file's last-write time `seconds` away from the test's start.
    void Touch(const std::wstring& path, int seconds)
    {
        HANDLE file = CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, 0, nullptr);
        ULARGE_INTEGER time{{start.dwLowDateTime, start.dwHighDateTime}};
        time.QuadPart += int64_t(seconds) * 10000000;
        FILETIME moved{time.LowPart, time.HighPart};
        SetFileTime(file, nullptr, nullptr, &moved);
        CloseHandle(file);
    }

    static ManifestFile Listed(const std::wstring& name, const std::string& data)
    {
        return ManifestFile{name, Sha1Text(data), data.size()};
    }

    static std::array<uint8_t, 20> Digest(const std::string& data)
    {
        std::array<uint8_t, 20> digest;
        Sha1Buffer(data.data(), data.size(), digest.data());
        return digest;
    }

    static bool Signalled(void* event) { return WaitForSingleObject(event, 0) == WAIT_OBJECT_0; }

    std::wstring folder, root;
    FILETIME start;
};

TEST_F(CatalogueTest, SharesOnlyListedFilesWithTheManifestsSizeAndHash)
{
    Write(root + L"a.txt", "current a");
    Write(root + L"dir\\d.txt", "current d");
    Write(root + L"b.txt", "differs");
    Write(root + L"unlisted.txt", "unlisted");
    Write(folder + L"\\outside.txt", "outside");
    Catalogue catalogue(root);
    std::vector<ManifestFile> files{Listed(L"a.txt", "current a"), Listed(L"dir\\d.txt", "current d"),
                                    Listed(L"b.txt", "manifest b"), Listed(L"missing.txt", "missing"),
                                    Listed(L"..\\outside.txt", "outside"), Listed(L"dir", "")};
    EXPECT_EQ(catalogue.Refresh(files), 2u);
    EXPECT_EQ(catalogue.SharedCount(), 2u);

    EXPECT_TRUE(catalogue.Matches(L"a.txt", Digest("current a").data(), 9));
    EXPECT_TRUE(catalogue.Matches(L"dir\\d.txt", Digest("current d").data(), 9));
    EXPECT_FALSE(catalogue.Matches(L"a.txt", Digest("current a").data(), 10));
    EXPECT_FALSE(catalogue.Matches(L"a.txt", Digest("other").data(), 9));
    EXPECT_FALSE(catalogue.Matches(L"A.TXT", Digest("current a").data(), 9));
    EXPECT_FALSE(catalogue.Matches(L"b.txt", Digest("manifest b").data(), 10));
    EXPECT_FALSE(catalogue.Matches(L"unlisted.txt", Digest("unlisted").data(), 8));
    EXPECT_FALSE(catalogue.Matches(L"..\\outside.txt", Digest("outside").data(), 7));

    uint64_t size = 0;
    EXPECT_TRUE(catalogue.OpenCurrent(L"a.txt", size));
    EXPECT_EQ(size, 9u);
    for (const wchar_t* name : {L"b.txt", L"missing.txt", L"unlisted.txt", L"..\\outside.txt", L"dir"})
        EXPECT_FALSE(catalogue.OpenCurrent(name, size)) << name;
}

TEST_F(CatalogueTest, ALowerCaseManifestHashMatchesAndABrokenOneNeverDoes)
{
    Write(root + L"a.txt", "a");
    Write(root + L"b.txt", "b");
    Catalogue catalogue(root);
    ManifestFile lower = Listed(L"a.txt", "a");
    lower.hash = LowerAscii(lower.hash);
    ManifestFile broken = Listed(L"b.txt", "b");
    broken.hash[0] = L'x';
    EXPECT_EQ(catalogue.Refresh({lower, broken}), 1u);
    EXPECT_TRUE(catalogue.Matches(L"a.txt", Digest("a").data(), 1));
}

TEST_F(CatalogueTest, AnUnchangedFileIsNotHashedAgain)
{
    // The file's content changes but its size and time are put back: a refresh that still shares
    // it has not read it again.
    std::wstring path = root + L"a.txt";
    Write(path, "content 1");
    Touch(path, -100);
    Catalogue catalogue(root);
    std::vector<ManifestFile> files{Listed(L"a.txt", "content 1")};
    EXPECT_EQ(catalogue.Refresh(files), 1u);
    Write(path, "content 2");
    Touch(path, -100);
    EXPECT_EQ(catalogue.Refresh(files), 1u);
    // A new time makes the next refresh hash it, and it is no longer shared.
    Touch(path, -50);
    EXPECT_EQ(catalogue.Refresh(files), 0u);
}

TEST_F(CatalogueTest, AFileIsCheckedAgainRightBeforeItIsServed)
{
    std::wstring path = root + L"a.txt";
    Write(path, "served a");
    Catalogue catalogue(root);
    EXPECT_EQ(catalogue.Refresh({Listed(L"a.txt", "served a")}), 1u);

    Write(path, "changed, longer");
    uint64_t size = 0;
    EXPECT_FALSE(catalogue.OpenCurrent(L"a.txt", size));
    EXPECT_EQ(catalogue.SharedCount(), 0u);
    EXPECT_FALSE(catalogue.Matches(L"a.txt", Digest("served a").data(), 8));

    Write(path, "served a");
    Touch(path, 10);
    UniqueHandle file = catalogue.OpenCurrent(L"a.txt", size);
    ASSERT_TRUE(file);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(catalogue.SharedCount(), 1u);
    // While it is served, nobody may write it.
    EXPECT_EQ(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                          OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
}

TEST_F(CatalogueTest, ARefreshReplacesTheListAndKeepsNothingElse)
{
    Write(root + L"a.txt", "a");
    Write(root + L"b.txt", "b");
    Catalogue catalogue(root);
    EXPECT_EQ(catalogue.Refresh({Listed(L"a.txt", "a")}), 1u);
    EXPECT_EQ(catalogue.Refresh({Listed(L"b.txt", "b")}), 1u);
    EXPECT_FALSE(catalogue.Matches(L"a.txt", Digest("a").data(), 1));
    EXPECT_TRUE(catalogue.Matches(L"b.txt", Digest("b").data(), 1));
    EXPECT_EQ(catalogue.Refresh({}), 0u);
}

TEST_F(CatalogueTest, AFileWhoseAttributesChangedIsNotMatchedUntilItIsHashedAgain)
{
    std::wstring path = root + L"a.txt";
    Write(path, "release a");
    Touch(path, -100);
    Catalogue catalogue(root);
    ASSERT_EQ(catalogue.Refresh({Listed(L"a.txt", "release a")}), 1u);
    auto digest = Digest("release a");
    EXPECT_TRUE(catalogue.Matches(L"a.txt", digest.data(), 9));
    EXPECT_FALSE(Signalled(catalogue.StaleEvent()));

    // Only the attributes are read: other bytes of the same size and time still match.
    Write(path, "other a!!");
    Touch(path, -100);
    EXPECT_TRUE(catalogue.Matches(L"a.txt", digest.data(), 9));

    // Longer, then shorter with the same time, then gone: never matched, and each queued.
    for (const char* change : {"longer", "shorter", "deleted"}) {
        if (change == std::string("deleted")) {
            ASSERT_TRUE(DeleteFileW(path.c_str()));
        } else {
            Write(path, change == std::string("longer") ? "release a, longer" : "release");
            Touch(path, -100);
        }
        EXPECT_FALSE(catalogue.Matches(L"a.txt", digest.data(), 9)) << change;
        EXPECT_TRUE(Signalled(catalogue.StaleEvent())) << change;
        EXPECT_EQ(catalogue.SharedCount(), 1u) << change;
        catalogue.HashStale();
        EXPECT_EQ(catalogue.SharedCount(), 0u) << change;
        // Hashed as it is now: not matched, and not queued again.
        EXPECT_FALSE(catalogue.Matches(L"a.txt", digest.data(), 9)) << change;
        EXPECT_FALSE(Signalled(catalogue.StaleEvent())) << change;

        // Back as the release has it, with its old time: queued once, then matched.
        Write(path, "release a");
        Touch(path, -100);
        EXPECT_FALSE(catalogue.Matches(L"a.txt", digest.data(), 9)) << change;
        EXPECT_TRUE(Signalled(catalogue.StaleEvent())) << change;
        catalogue.HashStale();
        EXPECT_TRUE(catalogue.Matches(L"a.txt", digest.data(), 9)) << change;
        EXPECT_EQ(catalogue.SharedCount(), 1u) << change;
        EXPECT_FALSE(Signalled(catalogue.StaleEvent())) << change;
    }
}

TEST_F(CatalogueTest, ARecordOfAnotherVersionNeitherMatchesNorQueuesTheFile)
{
    std::wstring path = root + L"a.txt";
    Write(path, "release a");
    Catalogue catalogue(root);
    ASSERT_EQ(catalogue.Refresh({Listed(L"a.txt", "release a")}), 1u);
    Write(path, "changed a, longer");
    EXPECT_FALSE(catalogue.Matches(L"a.txt", Digest("changed a, longer").data(), 17));
    EXPECT_FALSE(catalogue.Matches(L"a.txt", Digest("release a").data(), 17));
    EXPECT_FALSE(Signalled(catalogue.StaleEvent()));
}

TEST_F(CatalogueTest, AListedFileMissingAtTheRefreshIsSharedOnceItAppears)
{
    DeleteFileW((root + L"b.txt").c_str());  // left by an earlier run
    Catalogue catalogue(root);
    ASSERT_EQ(catalogue.Refresh({Listed(L"b.txt", "release b")}), 0u);
    auto digest = Digest("release b");
    EXPECT_FALSE(catalogue.Matches(L"b.txt", digest.data(), 9));
    EXPECT_FALSE(Signalled(catalogue.StaleEvent()));

    Write(root + L"b.txt", "release b");
    EXPECT_FALSE(catalogue.Matches(L"b.txt", digest.data(), 9));
    EXPECT_TRUE(Signalled(catalogue.StaleEvent()));
    catalogue.HashStale();
    EXPECT_TRUE(catalogue.Matches(L"b.txt", digest.data(), 9));
    EXPECT_EQ(catalogue.SharedCount(), 1u);
}

}  // namespace

// A file above 256 MiB is shared only when its manifest is of the objects format, and is checked
// again before it is served whatever its size.
TEST_F(CatalogueTest, LargeFilesAreSharedInTheObjectsFormat)
{
    std::wstring path = root + L"big.bin";
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    LARGE_INTEGER end;
    end.QuadPart = 300ll << 20;
    ASSERT_TRUE(SetFilePointerEx(file, end, nullptr, FILE_BEGIN) && SetEndOfFile(file));
    CloseHandle(file);
    ManifestFile big{L"big.bin", L"7A8BF8EFC28275F9957F283C4DEA66CC98B0C29B", 300ull << 20};

    Catalogue catalogue(root);
    EXPECT_EQ(catalogue.Refresh({big}), 0u);
    big.objects.listed = true;
    EXPECT_EQ(catalogue.Refresh({big}), 1u);
    Touch(path, 5);
    uint64_t size = 0;
    UniqueHandle served = catalogue.OpenCurrent(L"big.bin", size);
    EXPECT_TRUE(served);
    EXPECT_EQ(size, 300ull << 20);
    served.Reset();
    DeleteFileW(path.c_str());
}
