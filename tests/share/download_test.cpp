// Download URLs and the host walk that needs no network.
#include <gtest/gtest.h>
#include "app/config.h"
#include "share/download.h"

TEST(DownloadUrl, ServerWithPrefixAndPeerFromTheRoot)
{
    EXPECT_EQ(DownloadUrl(L"srv:8080", true, L"/files", L"dir\\sub file.txt"), L"http://srv:8080/files/dir/sub%20file.txt");
    EXPECT_EQ(DownloadUrl(L"192.168.0.7:8090", false, L"/files", L"dir\\sub file.txt"),
              L"http://192.168.0.7:8090/dir/sub%20file.txt");
    EXPECT_EQ(DownloadUrl(L"h", true, L"/", L"a.txt"), L"http://h//a.txt");
}

TEST(DownloadUrl, NonAsciiAndReservedCharactersAreEncodedFromUtf8)
{
    EXPECT_EQ(DownloadUrl(L"h", false, L"/", L"\u00e9+&%.txt"), L"http://h/%C3%A9%2B%26%25.txt");
    // Doubled separators give no empty segment.
    EXPECT_EQ(DownloadUrl(L"h", false, L"/", L"a\\\\b"), L"http://h/a/b");
}

TEST(PercentEncode, KeepsOnlyUnreservedBytes)
{
    EXPECT_EQ(PercentEncode("a b/c~*-_."), "a%20b%2Fc~*-_.");
    EXPECT_EQ(PercentEncode("\xC3\xA9"), "%C3%A9");
}

TEST(DownloadFromSources, EmptyHostListTriesNothing)
{
    UpdaterConfig config;
    updaterConfig = &config;
    UpdateItem item;
    item.name = L"a";
    FileDigest digest;
    bool done = false;
    uint32_t zero = 0;
    DownloadRequest request{L"unused", L"/", item, zero, zero, digest, done};
    RandomPick empty;
    EXPECT_FALSE(DownloadFromSources(empty, request));
    EXPECT_FALSE(done);
    updaterConfig = nullptr;
}
