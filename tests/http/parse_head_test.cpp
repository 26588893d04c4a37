// The response-head parser and the body sink, fed directly.
#include <gtest/gtest.h>
#include "http/test_files.h"
#include "http/request.h"
#include "runtime/pool.h"

#include <windows.h>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace {

// Parses `head` from an exact-size heap copy, so that a read past it is at least visible to tools.
int64_t Parse(HttpRequest& request, const std::string& head)
{
    std::unique_ptr<char[]> copy(new char[head.size() + 1]);
    std::memcpy(copy.get(), head.data(), head.size());
    return request.ParseHead(copy.get(), head.size());
}

}  // namespace

TEST(HttpParseHead, IncompleteHeadWaits)
{
    HttpRequest request;
    EXPECT_EQ(Parse(request, ""), 0);
    EXPECT_EQ(Parse(request, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n"), 0);
    EXPECT_EQ(Parse(request, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r"), 0);
    EXPECT_EQ(request.workStatus, 0u);
}

TEST(HttpParseHead, NewlineOnlyHeadNeverCompletes)
{
    HttpRequest request;
    EXPECT_EQ(Parse(request, "HTTP/1.1 200 OK\nContent-Length: 0\n\nbody\n\n\n"), 0);
}

TEST(HttpParseHead, CompleteHeadReturnsItsLength)
{
    HttpRequest request;
    std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n";
    EXPECT_EQ(Parse(request, head + "12345\r\n\r\nmore"), static_cast<int64_t>(head.size()));
    EXPECT_EQ(request.workStatus, 200u);
    EXPECT_EQ(request.expected, 5);
    EXPECT_NE(request.workBody, nullptr);
    EXPECT_EQ(request.deflate, 0);
    EXPECT_EQ(request.chunked, 0);
}

TEST(HttpParseHead, ContentLengthZeroTakesNoBlock)
{
    HttpRequest request;
    EXPECT_GT(Parse(request, "HTTP/1.1 204 No Content\r\nContent-Length: 0\r\n\r\n"), 0);
    EXPECT_EQ(request.workStatus, 204u);
    EXPECT_EQ(request.expected, 0);
    EXPECT_EQ(request.workBody, nullptr);
}

TEST(HttpParseHead, NoContentLengthExpectsForever)
{
    HttpRequest request;
    EXPECT_GT(Parse(request, "HTTP/1.0 200 OK\r\n\r\n"), 0);
    EXPECT_EQ(request.expected, INT64_MAX);
    EXPECT_EQ(request.workBody, nullptr);
}

TEST(HttpParseHead, StatusLine)
{
    HttpRequest request;
    EXPECT_GT(Parse(request, "http/1.0 404 Not Found\r\n\r\n"), 0);
    EXPECT_EQ(request.workStatus, 404u);
    EXPECT_GT(Parse(request, "HTTP/2   301\r\n\r\n"), 0);
    EXPECT_EQ(request.workStatus, 301u);
    EXPECT_GT(Parse(request, "HTTP/1.1 0x1F4 Hex\r\n\r\n"), 0);
    EXPECT_EQ(request.workStatus, 500u);
    EXPECT_GT(Parse(request, "HTTP/1.1 0b11001000\r\n\r\n"), 0);
    EXPECT_EQ(request.workStatus, 200u);
    EXPECT_GT(Parse(request, "HTTP/1.1 2xx\r\n\r\n"), 0);
    EXPECT_EQ(request.workStatus, 2u);
    EXPECT_GT(Parse(request, "\r\n HTTP/1.1 200 OK \r\n\r\n"), 0);
    EXPECT_EQ(request.workStatus, 200u);
}

TEST(HttpParseHead, MalformedStatusLineIsRefused)
{
    HttpRequest request;
    EXPECT_EQ(Parse(request, "HTTP/1.1\r\n\r\n"), -1);
    EXPECT_EQ(Parse(request, "HTTP 200 OK\r\n\r\n"), -1);
    EXPECT_EQ(Parse(request, "HTTX/1.1 200 OK\r\n\r\n"), -1);
    EXPECT_EQ(Parse(request, "ICY 200 OK\r\n\r\n"), -1);
    EXPECT_EQ(Parse(request, "\r\n\r\n"), -1);
    EXPECT_EQ(Parse(request, " \t\r\n\r\n"), -1);
}

TEST(HttpParseHead, HeaderLineWithoutColonIsRefused)
{
    HttpRequest request;
    EXPECT_EQ(Parse(request, "HTTP/1.1 200 OK\r\nContent-Length 5\r\n\r\n"), -1);
}

TEST(HttpParseHead, HeadersAreTrimmedAndTheLastOfANameWins)
{
    HttpRequest request;
    EXPECT_GT(Parse(request, "HTTP/1.1 200 OK\r\n  X-Name \t:  a: b  \r\nx-name: second\r\nEmpty:\r\n: nameless\r\n\r\n"),
              0);
    EXPECT_EQ(request.workHeaders.size(), 3u);
    EXPECT_EQ(request.workHeaders[L"X-NAME"], L"second");
    EXPECT_EQ(request.workHeaders[L"empty"], L"");
    EXPECT_EQ(request.workHeaders[L""], L"nameless");
}

TEST(HttpParseHead, ContentLengthNameIgnoresCase)
{
    HttpRequest request;
    EXPECT_GT(Parse(request, "HTTP/1.1 200 OK\r\ncontent-length: 3\r\n\r\n"), 0);
    EXPECT_EQ(request.expected, 3);
}

TEST(HttpParseHead, ContentLengthMustPrintBackExactly)
{
    for (const char* value : {"03", "+5", "0x10", "5 kB", "-1", "-0", "", "1.0", "99999999999999999999"}) {
        HttpRequest request;
        request.outputPath = L"unused";
        EXPECT_EQ(Parse(request, std::string("HTTP/1.1 200 OK\r\nContent-Length: ") + value + "\r\n\r\n"), -1)
            << value;
    }
    HttpRequest request;
    request.outputPath = L"unused";
    EXPECT_GT(Parse(request, "HTTP/1.1 200 OK\r\nContent-Length:   9223372036854775807  \r\n\r\n"), 0);
    EXPECT_EQ(request.expected, INT64_MAX);
    EXPECT_EQ(request.workBody, nullptr);
}

TEST(HttpParseHead, MemoryBodyIsBoundedAndFileBodyIsNot)
{
    HttpRequest memory;
    EXPECT_EQ(Parse(memory, "HTTP/1.1 200 OK\r\nContent-Length: 268435457\r\n\r\n"), -1);
    EXPECT_EQ(memory.workBody, nullptr);
    EXPECT_EQ(Parse(memory, "HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775807\r\n\r\n"), -1);
    EXPECT_EQ(memory.workBody, nullptr);

    HttpRequest file;
    file.outputPath = L"unused";
    EXPECT_GT(Parse(file, "HTTP/1.1 200 OK\r\nContent-Length: 10737418240\r\n\r\n"), 0);
    EXPECT_EQ(file.expected, 10737418240LL);
    EXPECT_EQ(file.workBody, nullptr);
}

TEST(HttpParseHead, MemoryBodyAtTheBoundIsAccepted)
{
    HttpRequest request;
    EXPECT_GT(Parse(request, "HTTP/1.1 200 OK\r\nContent-Length: 268435456\r\n\r\n"), 0);
    ASSERT_NE(request.workBody, nullptr);
    PoolFree(request.workBody);
    request.workBody = nullptr;
    PoolDrain();
}

TEST(HttpParseHead, MemoryBlockIsTheNextPowerOfTwo)
{
    HttpRequest request;
    EXPECT_GT(Parse(request, "HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n"), 0);
    ASSERT_NE(request.workBody, nullptr);
    EXPECT_EQ(static_cast<unsigned char*>(request.workBody)[-1], 13);  // the pool's class byte
    PoolFree(request.workBody);
    request.workBody = nullptr;
}

TEST(HttpParseHead, HeadRequestTakesNoBodyBlock)
{
    HttpRequest request;
    request.headOnly = 1;
    EXPECT_GT(Parse(request, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n"), 0);
    EXPECT_EQ(request.expected, 100);
    EXPECT_EQ(request.workBody, nullptr);
}

TEST(HttpParseHead, DeflateIsRefusedAnyCase)
{
    HttpRequest request;
    EXPECT_EQ(Parse(request, "HTTP/1.1 200 OK\r\nContent-Encoding: DEFLATE\r\nTransfer-Encoding: chunked\r\n\r\n"), -1);
    EXPECT_EQ(request.deflate, 1);
    EXPECT_EQ(request.chunked, 0);  // not looked at once refused
}

TEST(HttpParseHead, OtherEncodingsPass)
{
    HttpRequest request;
    EXPECT_GT(Parse(request, "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 0\r\n\r\n"), 0);
    EXPECT_EQ(request.deflate, 0);
    EXPECT_GT(Parse(request, "HTTP/1.1 200 OK\r\nTransfer-Encoding: identity\r\n\r\n"), 0);
    EXPECT_EQ(request.chunked, 0);
}

TEST(HttpParseHead, ChunkedIsRefusedAnyCase)
{
    HttpRequest request;
    EXPECT_EQ(Parse(request, "HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\n\r\n"), -1);
    EXPECT_EQ(request.chunked, 1);
}

TEST(HttpParseHead, Utf8AndStrayBytes)
{
    HttpRequest request;
    const char text[] = "HTTP/1.1 200 OK\r\nX-Text: caf\xC3\xA9\r\nX-Bad: \xFF\xFE\x80\r\nX-Nul: a\0b\r\n\r\n";
    std::string head(text, sizeof(text) - 1);
    EXPECT_EQ(Parse(request, head), static_cast<int64_t>(head.size()));
    EXPECT_EQ(request.workHeaders[L"x-text"], L"caf\u00E9");
    EXPECT_EQ(request.workHeaders[L"x-nul"], std::wstring(L"a\0b", 3));
}

TEST(HttpTakeBody, StopsAtTheAnnouncedLength)
{
    HttpRequest request;
    ASSERT_GT(Parse(request, "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n"), 0);
    EXPECT_EQ(request.TakeBody("123", 3), 3);
    EXPECT_EQ(request.TakeBody("4567", 4), 2);
    EXPECT_EQ(request.received, 5);
    EXPECT_EQ(std::string(static_cast<char*>(request.workBody), 5), "12345");
    EXPECT_EQ(request.TakeBody("8", 1), 0);
    PoolFree(request.workBody);
    request.workBody = nullptr;
}

TEST(HttpTakeBody, WithoutLengthCountsButKeepsNothing)
{
    HttpRequest request;
    ASSERT_GT(Parse(request, "HTTP/1.1 200 OK\r\n\r\n"), 0);
    EXPECT_EQ(request.TakeBody("abcdef", 6), 6);
    EXPECT_EQ(request.received, 6);
    EXPECT_EQ(request.workBody, nullptr);
}

TEST(HttpTakeBody, KeepsTheRateMeterWithoutALimit)
{
    HttpRequest request;
    ASSERT_GT(Parse(request, "HTTP/1.1 200 OK\r\n\r\n"), 0);
    EXPECT_EQ(request.TakeBody("abcdef", 6), 6);
    EXPECT_NE(request.rateSlotStart, 0u);
    EXPECT_EQ(request.rateSum + request.rateSlotBytes, 6u);
}

TEST(HttpTakeBody, RateLimitAdmitsThreeSecondsOfCreditAtOnce)
{
    HttpRequest request;
    request.rateActiveLimit = 1000;
    ASSERT_GT(Parse(request, "HTTP/1.1 200 OK\r\n\r\n"), 0);
    std::string bytes(2500, 'x');
    EXPECT_EQ(request.TakeBody(bytes.data(), bytes.size()), 2500);
    EXPECT_LE(request.rateSum + request.rateSlotBytes, 3000u);
}

TEST(HttpTakeBody, WritesTheFileAtItsOffsets)
{
    std::wstring path = TempPath(L"vey_take_body_");
    {
        HttpRequest request;
        request.outputPath = path;
        ASSERT_GT(Parse(request, "HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\n"), 0);
        EXPECT_EQ(request.workBody, nullptr);
        EXPECT_EQ(request.TakeBody("abc", 3), 3);
        EXPECT_TRUE(request.file.IsOpen());
        EXPECT_EQ(request.TakeBody("defgXYZ", 7), 4);
        request.file.Close();
    }
    EXPECT_EQ(ReadFile(path), "abcdefg");
    DeleteFileW(path.c_str());
}

TEST(HttpTakeBody, FileThatCannotBeOpenedFails)
{
    HttpRequest request;
    request.outputPath = TempPath(L"vey_missing_dir_") + L"\\sub\\out.bin";
    ASSERT_GT(Parse(request, "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n"), 0);
    EXPECT_EQ(request.TakeBody("abc", 3), -1);
    EXPECT_EQ(request.received, 0);
}
