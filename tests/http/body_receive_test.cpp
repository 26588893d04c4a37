// What the receive path keeps while it takes larger pieces: the head within the first 32768
// bytes, a body of any length received whole after it, and a watcher of the written body that
// sees exactly the bytes the file holds, and short of them when a write fails.
#include <gtest/gtest.h>
#include "http/request.h"
#include "http/responses.h"
#include "http/script_server.h"
#include "http/test_files.h"

#include <string>
#include <vector>

namespace {

// A response head of exactly `size` bytes announcing `body`, followed by it.
std::string HeadOfSize(size_t size, const std::string& body)
{
    std::string start = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\nX-Fill: ";
    std::string end = "\r\n\r\n";
    return start + std::string(size - start.size() - end.size(), 'f') + end + body;
}

// Records what the body sink reports as written, and how often the file was started.
class RecordedBody final : public WrittenBody {
public:
    void Restart() override
    {
        bytes.clear();
        ++restarts;
    }
    void Take(const void* data, size_t count) override { bytes.append(static_cast<const char*>(data), count); }

    std::string bytes;
    int restarts = 0;
};

std::string Body(const HttpRequest& request)
{
    return std::string(static_cast<const char*>(request.responseBody), static_cast<size_t>(request.responseBodyLength));
}

}  // namespace

TEST(HttpReceive, HeadOfExactly32768BytesCompletes)
{
    std::string body = RandomText(100000);
    ScriptServer server;
    server.Start({Send(HeadOfSize(32768, body))});
    HttpRequest request;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(request.responseHeaders[L"X-Fill"].size(), 32768u - 53u);  // 49 bytes before the value, 4 after
    EXPECT_EQ(Body(request), body);
}

TEST(HttpReceive, HeadOf32769BytesNeverCompletes)
{
    ScriptServer server;
    server.Start({Send(HeadOfSize(32769, "abc"), true)});
    HttpRequest request;
    request.receiveTimeoutMs = 5000;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 0u);
    EXPECT_TRUE(request.responseHeaders.empty());
}

TEST(HttpReceive, LongBodiesArriveWholeInMemoryAndInTheFile)
{
    std::string body = RandomText(5 * 1024 * 1024 + 77);
    std::string response = Ok(body);
    std::wstring path = TempPath(L"vey_long_");
    ScriptServer server;
    server.Start({Send(response), Send(response)});
    HttpRequest request;
    request.Execute(server.Url(L"/memory"));
    ASSERT_EQ(request.status, 200u);
    EXPECT_TRUE(Body(request) == body);

    request.Reset();
    request.outputPath = path;
    request.Execute(server.Url(L"/file"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_TRUE(ReadFile(path) == body);
    DeleteFileW(path.c_str());
}

TEST(HttpReceive, WatcherSeesTheBytesOfTheFileFromItsStart)
{
    std::string body = RandomText(3 * 1024 * 1024 + 5);
    std::wstring path = TempPath(L"vey_watched_");
    ScriptServer server;
    std::string moved = "HTTP/1.1 302 Found\r\nLocation: " + WideToUtf8(server.Url(L"/final")) +
                        "\r\nContent-Length: 26\r\n\r\nabcdefghijklmnopqrstuvwxyz";
    // The final body arrives in pieces with pauses, so batches are also written before waits.
    std::string response = Ok(body);
    Script pieces;
    for (size_t at = 0; at < response.size(); at += 700000)
        pieces.chunks.push_back(Chunk{response.substr(at, 700000), 20});
    server.Start({Send(moved), pieces});
    RecordedBody recorded;
    HttpRequest request;
    request.outputPath = path;
    request.writtenBody = &recorded;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_EQ(recorded.restarts, 2);  // the redirect's body, then the final one
    std::string onDisk = ReadFile(path);
    EXPECT_EQ(onDisk.size(), body.size());
    EXPECT_TRUE(onDisk == body);
    EXPECT_TRUE(recorded.bytes == onDisk);
    DeleteFileW(path.c_str());
}

TEST(HttpReceive, FailedWriteEndsWithStatusZeroAndTheWatcherShortOfTheBody)
{
    // Every write to this device fails with "disk full"; opening it creates or truncates nothing.
    // It is never deleted.
    const std::wstring full = L"Z:\\dev\\full";
    std::string body = RandomText(2 * 1024 * 1024 + 9);
    ScriptServer server;
    server.Start({Send(Ok(body))});
    RecordedBody recorded;
    HttpRequest request;
    request.outputPath = full;
    request.writtenBody = &recorded;
    request.Execute(server.Url(L"/"));
    EXPECT_EQ(request.status, 0u);
    EXPECT_EQ(recorded.restarts, 1);
    EXPECT_TRUE(recorded.bytes.empty());
}
