// Download URLs and the host walk that needs no network.
#include <gtest/gtest.h>
#include "http/script_server.h"
#include "runtime/iocp.h"
#include "runtime/random_pick.h"
#include "runtime/text.h"
#include "release/download.h"
#include "crypto/sha1.h"
#include "crypto/sha256.h"
#include "release/signature.h"
#include "support/random_bytes.h"
#include "release/update_item.h"
#include "support/test_path.h"


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
    std::vector<std::wstring> servers;
    UpdateItem item;
    item.name = L"a";
    FileDigest digest;
    bool done = false;
    uint32_t zero = 0;
    DownloadRequest request{L"unused", L"/", item, zero, zero, digest, done};
    RandomPick empty;
    EXPECT_FALSE(DownloadFromSources(empty, servers, request));
    EXPECT_FALSE(done);
}

namespace {

std::string Response(const std::string& status, const std::string& body)
{
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// Reproducible bytes, different for every length.
std::string RandomText(size_t count)
{
    std::vector<uint8_t> bytes = RandomBytes(count);
    return std::string(bytes.begin(), bytes.end());
}

std::wstring Sha1Text(const std::string& bytes)
{
    uint8_t digest[kSha1DigestSize];
    Sha1Buffer(bytes.data(), bytes.size(), digest);
    return BytesToHex(digest, sizeof(digest));
}

std::wstring Sha256Text(const std::string& bytes)
{
    uint8_t digest[kSha256DigestSize];
    Sha256Buffer(bytes.data(), bytes.size(), digest);
    return Sha256ToText(digest);
}

std::wstring Host(const ScriptServer& server)
{
    return L"127.0.0.1:" + std::to_wstring(server.Port());
}

class DownloadTest : public testing::Test {
protected:
    void SetUp() override
    {
        WSADATA data;
        WSAStartup(MAKEWORD(2, 2), &data);
        IocpStart();
        folder = TestPath(L"download-");
        item.name = L"dir\\f.txt";
        item.hash = L"A9993E364706816ABA3E25717850C26C9CD0D89D";  // "abc"
        item.size = 3;
    }
    void TearDown() override
    {
        IocpShutdown();
        WSACleanup();
    }

    // One attempt at `path` from a server that answers 200 with `body`.
    bool DownloadServed(const std::string& body, const std::wstring& path, FileDigest& digest, bool& done)
    {
        ScriptServer server;
        server.Start({Script{{Chunk{Response("200 OK", body)}}}});
        RandomPick hosts;
        hosts.items = {Host(server)};
        uint32_t zero = 0;
        DownloadRequest request{path, L"/", item, zero, zero, digest, done};
        bool downloaded = DownloadFromSources(hosts, servers, request);
        server.Finish();
        return downloaded;
    }

    std::vector<std::wstring> servers;
    UpdateItem item;
    std::wstring folder;
};

}  // namespace

TEST_F(DownloadTest, SuccessfulHostIsWhereTheNextItemStarts)
{
    ScriptServer failing, good;
    failing.Start({Script{{Chunk{Response("404 Not Found", "no")}}}});
    good.Start({Script{{Chunk{Response("200 OK", "abc")}}}, Script{{Chunk{Response("200 OK", "abc")}}}});
    servers = {Host(failing), Host(good)};
    RandomPick hosts;
    hosts.items = servers;
    hosts.index = 0;

    FileDigest digest;
    bool done = false;
    uint32_t zero = 0;
    DownloadRequest first{folder + L"\\one\\f.txt", L"/p", item, zero, zero, digest, done};
    EXPECT_TRUE(DownloadFromSources(hosts, servers, first));
    EXPECT_TRUE(done);
    EXPECT_EQ(hosts.index, 1u);
    EXPECT_EQ(digest.hash, item.hash);
    EXPECT_EQ(digest.size, 3u);
    // The failing server is dropped from the configured list; the pick keeps its own copy.
    EXPECT_EQ(servers, std::vector<std::wstring>{Host(good)});
    EXPECT_EQ(hosts.items.size(), 2u);

    bool doneAgain = false;
    DownloadRequest second{folder + L"\\two\\f.txt", L"/p", item, zero, zero, digest, doneAgain};
    EXPECT_TRUE(DownloadFromSources(hosts, servers, second));
    EXPECT_TRUE(doneAgain);
    EXPECT_EQ(failing.Finish().size(), 1u);
    const std::vector<std::string>& requests = good.Finish();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].substr(0, 25), "GET /p/dir/f.txt HTTP/1.1");
}

TEST_F(DownloadTest, OneHostIsTriedOnceAndAWrongFileStaysForTheNextAttempt)
{
    ScriptServer server;
    server.Start({Script{{Chunk{Response("200 OK", "abd")}}}});
    servers = {Host(server)};
    RandomPick hosts;
    hosts.items = servers;
    FileDigest digest;
    bool done = false;
    uint32_t zero = 0;
    std::wstring path = folder + L"\\f.txt";
    DownloadRequest request{path, L"/", item, zero, zero, digest, done};
    EXPECT_FALSE(DownloadFromSources(hosts, servers, request));
    EXPECT_FALSE(done);
    EXPECT_EQ(server.Finish().size(), 1u);
    EXPECT_EQ(digest.hash, L"CB4CC28DF0FDBE0ECF9D9662E294B118092A5735");  // "abd"
    EXPECT_NE(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_TRUE(servers.empty());
}

TEST_F(DownloadTest, PeerOverridesReplaceTheTimeouts)
{
    // A listener that never answers: the receive time-out of the override ends the attempt.
    ScriptServer silent;
    silent.Start({Script{{}, true}});
    RandomPick hosts;
    hosts.items = {Host(silent)};
    FileDigest digest;
    bool done = false;
    uint32_t connect = 500, receive = 200;
    DownloadRequest request{folder + L"\\f.txt", L"/", item, connect, receive, digest, done};
    DWORD start = GetTickCount();
    EXPECT_FALSE(DownloadFromSources(hosts, servers, request));
    DWORD elapsed = GetTickCount() - start;
    EXPECT_GE(elapsed, 150u);
    EXPECT_LT(elapsed, 900u);
    silent.Finish();
}

TEST_F(DownloadTest, DigestOfAValidDownloadIsThatOfTheFileOnDisk)
{
    // Several write batches, the last one partial.
    std::string body = RandomText(3 * 1024 * 1024 + 1001);
    item.hash = Sha1Text(body);
    item.size = body.size();
    std::wstring path = folder + L"\\f.bin";
    FileDigest digest;
    bool done = false;
    EXPECT_TRUE(DownloadServed(body, path, digest, done));
    EXPECT_TRUE(done);
    EXPECT_EQ(digest.hash, item.hash);
    EXPECT_EQ(digest.size, body.size());
    FileDigest onDisk = HashFile(path);
    EXPECT_EQ(onDisk.hash, digest.hash);
    EXPECT_EQ(onDisk.size, digest.size);
}

TEST_F(DownloadTest, SignedItemIsValidOnlyWithTheSha256OfItsBytes)
{
    std::string body = RandomText(1024 * 1024 + 3);
    std::string other = body;
    other[0] = static_cast<char>(other[0] ^ 1);
    item.hash = Sha1Text(body);
    item.size = body.size();
    for (bool right : {true, false}) {
        item.sha256 = Sha256Text(right ? body : other);
        FileDigest digest;
        bool done = false;
        EXPECT_EQ(DownloadServed(body, folder + L"\\signed.bin", digest, done), right);
        EXPECT_EQ(done, right);
        // The SHA-1 and size agree either way; only the SHA-256 decides.
        EXPECT_EQ(digest.hash, item.hash);
        EXPECT_EQ(digest.size, body.size());
    }
}
