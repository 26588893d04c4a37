// The response-head parser and the body sink, fed directly.
#include <gtest/gtest.h>
#include "http/test_files.h"
#include "http/body_sink.h"
#include "http/rate_meter.h"
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
int64_t Parse(BodySink& sink, const std::string& head)
{
    std::unique_ptr<char[]> copy(new char[head.size() + 1]);
    std::memcpy(copy.get(), head.data(), head.size());
    return sink.TakeHead(copy.get(), head.size());
}

}  // namespace

TEST(HttpParseHead, IncompleteHeadWaits)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_EQ(Parse(sink, ""), 0);
    EXPECT_EQ(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n"), 0);
    EXPECT_EQ(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r"), 0);
    EXPECT_EQ(sink.head.status, 0u);
}

TEST(HttpParseHead, NewlineOnlyHeadNeverCompletes)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_EQ(Parse(sink, "HTTP/1.1 200 OK\nContent-Length: 0\n\nbody\n\n\n"), 0);
}

TEST(HttpParseHead, CompleteHeadReturnsItsLength)
{
    RateMeter meter;
    BodySink sink(meter);
    std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n";
    EXPECT_EQ(Parse(sink, head + "12345\r\n\r\nmore"), static_cast<int64_t>(head.size()));
    EXPECT_EQ(sink.head.status, 200u);
    EXPECT_EQ(sink.head.expected, 5);
    EXPECT_NE(sink.body, nullptr);
    EXPECT_EQ(sink.head.deflate, 0);
    EXPECT_EQ(sink.head.chunked, 0);
}

TEST(HttpParseHead, ContentLengthZeroTakesNoBlock)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_GT(Parse(sink, "HTTP/1.1 204 No Content\r\nContent-Length: 0\r\n\r\n"), 0);
    EXPECT_EQ(sink.head.status, 204u);
    EXPECT_EQ(sink.head.expected, 0);
    EXPECT_EQ(sink.body, nullptr);
}

TEST(HttpParseHead, NoContentLengthExpectsForever)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_GT(Parse(sink, "HTTP/1.0 200 OK\r\n\r\n"), 0);
    EXPECT_EQ(sink.head.expected, INT64_MAX);
    EXPECT_EQ(sink.body, nullptr);
}

TEST(HttpParseHead, StatusLine)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_GT(Parse(sink, "http/1.0 404 Not Found\r\n\r\n"), 0);
    EXPECT_EQ(sink.head.status, 404u);
    EXPECT_GT(Parse(sink, "HTTP/2   301\r\n\r\n"), 0);
    EXPECT_EQ(sink.head.status, 301u);
    EXPECT_GT(Parse(sink, "HTTP/1.1 0x1F4 Hex\r\n\r\n"), 0);
    EXPECT_EQ(sink.head.status, 500u);
    EXPECT_GT(Parse(sink, "HTTP/1.1 0b11001000\r\n\r\n"), 0);
    EXPECT_EQ(sink.head.status, 200u);
    EXPECT_GT(Parse(sink, "HTTP/1.1 2xx\r\n\r\n"), 0);
    EXPECT_EQ(sink.head.status, 2u);
    EXPECT_GT(Parse(sink, "\r\n HTTP/1.1 200 OK \r\n\r\n"), 0);
    EXPECT_EQ(sink.head.status, 200u);
}

TEST(HttpParseHead, MalformedStatusLineIsRefused)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_EQ(Parse(sink, "HTTP/1.1\r\n\r\n"), -1);
    EXPECT_EQ(Parse(sink, "HTTP 200 OK\r\n\r\n"), -1);
    EXPECT_EQ(Parse(sink, "HTTX/1.1 200 OK\r\n\r\n"), -1);
    EXPECT_EQ(Parse(sink, "ICY 200 OK\r\n\r\n"), -1);
    EXPECT_EQ(Parse(sink, "\r\n\r\n"), -1);
    EXPECT_EQ(Parse(sink, " \t\r\n\r\n"), -1);
}

TEST(HttpParseHead, HeaderLineWithoutColonIsRefused)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_EQ(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Length 5\r\n\r\n"), -1);
}

TEST(HttpParseHead, HeadersAreTrimmedAndTheLastOfANameWins)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_GT(Parse(sink, "HTTP/1.1 200 OK\r\n  X-Name \t:  a: b  \r\nx-name: second\r\nEmpty:\r\n: nameless\r\n\r\n"),
              0);
    EXPECT_EQ(sink.head.headers.size(), 3u);
    EXPECT_EQ(sink.head.headers[L"X-NAME"], L"second");
    EXPECT_EQ(sink.head.headers[L"empty"], L"");
    EXPECT_EQ(sink.head.headers[L""], L"nameless");
}

TEST(HttpParseHead, ContentLengthNameIgnoresCase)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_GT(Parse(sink, "HTTP/1.1 200 OK\r\ncontent-length: 3\r\n\r\n"), 0);
    EXPECT_EQ(sink.head.expected, 3);
}

TEST(HttpParseHead, ContentLengthMustPrintBackExactly)
{
    for (const char* value : {"03", "+5", "0x10", "5 kB", "-1", "-0", "", "1.0", "99999999999999999999"}) {
        RateMeter meter;
        BodySink sink(meter);
        sink.Begin(L"unused", false);
        EXPECT_EQ(Parse(sink, std::string("HTTP/1.1 200 OK\r\nContent-Length: ") + value + "\r\n\r\n"), -1)
            << value;
    }
    RateMeter meter;
    BodySink sink(meter);
    sink.Begin(L"unused", false);
    EXPECT_GT(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Length:   9223372036854775807  \r\n\r\n"), 0);
    EXPECT_EQ(sink.head.expected, INT64_MAX);
    EXPECT_EQ(sink.body, nullptr);
}

TEST(HttpParseHead, MemoryBodyIsBoundedAndFileBodyIsNot)
{
    RateMeter meter;
    BodySink memory(meter);
    EXPECT_EQ(Parse(memory, "HTTP/1.1 200 OK\r\nContent-Length: 268435457\r\n\r\n"), -1);
    EXPECT_EQ(memory.body, nullptr);
    EXPECT_EQ(Parse(memory, "HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775807\r\n\r\n"), -1);
    EXPECT_EQ(memory.body, nullptr);

    BodySink file(meter);
    file.Begin(L"unused", false);
    EXPECT_GT(Parse(file, "HTTP/1.1 200 OK\r\nContent-Length: 10737418240\r\n\r\n"), 0);
    EXPECT_EQ(file.head.expected, 10737418240LL);
    EXPECT_EQ(file.body, nullptr);
}

TEST(HttpParseHead, MemoryBodyAtTheBoundIsAccepted)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_GT(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Length: 268435456\r\n\r\n"), 0);
    ASSERT_NE(sink.body, nullptr);
    PoolFree(sink.body);
    sink.body = nullptr;
    PoolDrain();
}

TEST(HttpParseHead, MemoryBlockIsTheNextPowerOfTwo)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_GT(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n"), 0);
    ASSERT_NE(sink.body, nullptr);
    EXPECT_EQ(static_cast<unsigned char*>(sink.body)[-1], 13);  // the pool's class byte
    PoolFree(sink.body);
    sink.body = nullptr;
}

TEST(HttpParseHead, HeadRequestTakesNoBodyBlock)
{
    RateMeter meter;
    BodySink sink(meter);
    sink.Begin(L"", true);
    EXPECT_GT(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n"), 0);
    EXPECT_EQ(sink.head.expected, 100);
    EXPECT_EQ(sink.body, nullptr);
}

TEST(HttpParseHead, DeflateIsRefusedAnyCase)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_EQ(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Encoding: DEFLATE\r\nTransfer-Encoding: chunked\r\n\r\n"), -1);
    EXPECT_EQ(sink.head.deflate, 1);
    EXPECT_EQ(sink.head.chunked, 0);  // not looked at once refused
}

TEST(HttpParseHead, OtherEncodingsPass)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_GT(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 0\r\n\r\n"), 0);
    EXPECT_EQ(sink.head.deflate, 0);
    EXPECT_GT(Parse(sink, "HTTP/1.1 200 OK\r\nTransfer-Encoding: identity\r\n\r\n"), 0);
    EXPECT_EQ(sink.head.chunked, 0);
}

TEST(HttpParseHead, ChunkedIsRefusedAnyCase)
{
    RateMeter meter;
    BodySink sink(meter);
    EXPECT_EQ(Parse(sink, "HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\n\r\n"), -1);
    EXPECT_EQ(sink.head.chunked, 1);
}

TEST(HttpParseHead, Utf8AndStrayBytes)
{
    RateMeter meter;
    BodySink sink(meter);
    const char text[] = "HTTP/1.1 200 OK\r\nX-Text: caf\xC3\xA9\r\nX-Bad: \xFF\xFE\x80\r\nX-Nul: a\0b\r\n\r\n";
    std::string head(text, sizeof(text) - 1);
    EXPECT_EQ(Parse(sink, head), static_cast<int64_t>(head.size()));
    EXPECT_EQ(sink.head.headers[L"x-text"], L"caf\u00E9");
    EXPECT_EQ(sink.head.headers[L"x-nul"], std::wstring(L"a\0b", 3));
}

TEST(HttpTakeBody, StopsAtTheAnnouncedLength)
{
    RateMeter meter;
    BodySink sink(meter);
    ASSERT_GT(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n"), 0);
    EXPECT_EQ(sink.TakeBody("123", 3), 3);
    EXPECT_EQ(sink.TakeBody("4567", 4), 2);
    EXPECT_EQ(sink.received, 5);
    EXPECT_EQ(std::string(static_cast<char*>(sink.body), 5), "12345");
    EXPECT_EQ(sink.TakeBody("8", 1), 0);
    PoolFree(sink.body);
    sink.body = nullptr;
}

TEST(HttpTakeBody, WithoutLengthCountsButKeepsNothing)
{
    RateMeter meter;
    BodySink sink(meter);
    ASSERT_GT(Parse(sink, "HTTP/1.1 200 OK\r\n\r\n"), 0);
    EXPECT_EQ(sink.TakeBody("abcdef", 6), 6);
    EXPECT_EQ(sink.received, 6);
    EXPECT_EQ(sink.body, nullptr);
}

TEST(HttpTakeBody, KeepsTheRateMeterWithoutALimit)
{
    RateMeter meter;
    BodySink sink(meter);
    ASSERT_GT(Parse(sink, "HTTP/1.1 200 OK\r\n\r\n"), 0);
    EXPECT_EQ(sink.TakeBody("abcdef", 6), 6);
    EXPECT_NE(meter.rateSlotStart, 0u);
    EXPECT_EQ(meter.rateSum + meter.rateSlotBytes, 6u);
}

TEST(HttpTakeBody, RateLimitAdmitsThreeSecondsOfCreditAtOnce)
{
    RateMeter meter;
    BodySink sink(meter);
    meter.rateActiveLimit = 1000;
    ASSERT_GT(Parse(sink, "HTTP/1.1 200 OK\r\n\r\n"), 0);
    std::string bytes(2500, 'x');
    EXPECT_EQ(sink.TakeBody(bytes.data(), bytes.size()), 2500);
    EXPECT_LE(meter.rateSum + meter.rateSlotBytes, 3000u);
}

TEST(HttpTakeBody, WritesTheFileAtItsOffsets)
{
    std::wstring path = TempPath(L"vey_take_body_");
    {
        RateMeter meter;
        BodySink sink(meter);
        sink.Begin(path, false);
        ASSERT_GT(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\n"), 0);
        EXPECT_EQ(sink.body, nullptr);
        EXPECT_EQ(sink.TakeBody("abc", 3), 3);
        EXPECT_TRUE(sink.File().IsOpen());
        EXPECT_EQ(sink.TakeBody("defgXYZ", 7), 4);
        sink.End();
    }
    EXPECT_EQ(ReadFile(path), "abcdefg");
    DeleteFileW(path.c_str());
}

TEST(HttpTakeBody, FileThatCannotBeOpenedFails)
{
    RateMeter meter;
    BodySink sink(meter);
    sink.Begin(TempPath(L"vey_missing_dir_") + L"\\sub\\out.bin", false);
    ASSERT_GT(Parse(sink, "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n"), 0);
    EXPECT_EQ(sink.TakeBody("abc", 3), -1);
    EXPECT_EQ(sink.received, 0);
}
