// Large bodies over loopback, to memory and to a file: the bytes arrive exactly; the rate is printed.
#include <gtest/gtest.h>
#include "http/request.h"
#include "http/script_server.h"
#include "runtime/clock.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace {

constexpr size_t kSize = 64 * 1024 * 1024;

std::string Response(size_t size)
{
    std::string head = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n";
    std::string response(head.size() + size, '\0');
    std::memcpy(&response[0], head.data(), head.size());
    std::mt19937 random(99);
    for (size_t i = head.size(); i < response.size(); i += 4) {
        uint32_t value = random();
        std::memcpy(&response[i], &value, std::min<size_t>(4, response.size() - i));
    }
    return response;
}

void Print(const char* what, size_t bytes, uint64_t ms)
{
    std::printf("%s: %zu bytes in %llu ms, %.0f MB/s\n", what, bytes, static_cast<unsigned long long>(ms),
                ms ? bytes / 1048576.0 / (ms / 1000.0) : 0.0);
}

}  // namespace

TEST(HttpThroughput, LargeBodyToMemory)
{
    std::string response = Response(kSize);
    ScriptServer server;
    server.Start({Script{{Chunk{response, 0}}, false}});
    HttpRequest request;
    uint64_t start = PerformanceMilliseconds();
    request.Execute(server.Url(L"/big"));
    uint64_t ms = PerformanceMilliseconds() - start;
    ASSERT_EQ(request.status, 200u);
    ASSERT_EQ(request.responseBodyLength, static_cast<int64_t>(kSize));
    EXPECT_EQ(std::memcmp(request.responseBody, response.data() + response.size() - kSize, kSize), 0);
    Print("memory", kSize, ms);
}

TEST(HttpThroughput, LargeBodyToFile)
{
    std::string response = Response(kSize);
    wchar_t directory[MAX_PATH];
    GetTempPathW(MAX_PATH, directory);
    std::wstring path = std::wstring(directory) + L"vey_big_" + std::to_wstring(GetCurrentProcessId());
    ScriptServer server;
    server.Start({Script{{Chunk{response, 0}}, false}});
    HttpRequest request;
    request.outputPath = path;
    uint64_t start = PerformanceMilliseconds();
    request.Execute(server.Url(L"/big"));
    uint64_t ms = PerformanceMilliseconds() - start;
    ASSERT_EQ(request.status, 200u);
    Print("file", kSize, ms);
    std::ifstream in(path.c_str(), std::ios::binary);
    std::string written((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    in.close();
    EXPECT_TRUE(written == response.substr(response.size() - kSize));
    DeleteFileW(path.c_str());
}
