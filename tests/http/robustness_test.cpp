// Randomized robustness of the two parsers that read outside input: a million generated and
// mutated URLs for HttpUrl::Parse and a million response heads for the body sink's TakeHead. The
// heads are placed so that they end exactly where a no-access page begins, so a read past the
// received bytes faults. Each run checks the parsers' invariants; the seed is fixed and printed.
#include <gtest/gtest.h>
#include "http/body_sink.h"
#include "http/rate_meter.h"
#include "http/url.h"
#include "runtime/clock.h"
#include "runtime/pool.h"
#include "support/fuzz.h"

#include <windows.h>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kSeed = 0x5EED2026;
constexpr int kRounds = 1000000;

// URLs ---------------------------------------------------------------------------------------

const wchar_t* const kSchemes[] = {L"", L"http://", L"HTTP://", L"https://", L"Ftp://", L"x://", L"://", L"http:/",
                                   L"http:", L"h t://"};
const wchar_t* const kPorts[] = {L"", L":", L":80", L":0", L":65535", L":65536", L":-1", L":-", L":0x10", L":8080x",
                                 L":99999999999999999999", L":18446744073709551617", L"::", L": 1"};
const wchar_t* const kUrlTokens[] = {L"/", L"?", L"&", L"=", L":", L"://", L" ", L"\t", L"%", L"%20", L"..", L"a=b",
                                     L"&&", L"==", L"\u00E9", L"\xD800", L"\xDC00", L"\uFFFF", L"A", L"z", L"9"};
const wchar_t kUrlCharacters[] = L"aZ09.-_~/?&=:%# \t\r\n@[]+";

std::wstring RandomText(Random& random, size_t most)
{
    std::wstring text;
    size_t length = random.Below(static_cast<uint32_t>(most) + 1);
    for (size_t i = 0; i < length; ++i) {
        if (random.OneIn(12))
            text += static_cast<wchar_t>(random.Below(0x10000));
        else
            text += kUrlCharacters[random.Below(sizeof(kUrlCharacters) / sizeof(wchar_t) - 1)];
    }
    return text;
}

std::wstring MakeUrl(Random& random)
{
    std::wstring url = random.Pick(kSchemes);
    url += random.OneIn(8) ? RandomText(random, 6) : std::wstring(L"Host.Example");
    url += random.Pick(kPorts);
    if (!random.OneIn(4)) {
        url += L"/";
        url += RandomText(random, 8);
    }
    if (random.OneIn(2)) {
        url += L"?";
        for (uint32_t n = random.Below(4); n > 0; --n) {
            url += RandomText(random, 3) + L"=" + RandomText(random, 3);
            url += random.OneIn(3) ? L"&&" : L"&";
        }
    }
    for (uint32_t n = random.Below(4); n > 0; --n) {
        size_t at = url.empty() ? 0 : random.Below(static_cast<uint32_t>(url.size()));
        switch (random.Below(4)) {
        case 0:
            url.insert(at, random.Pick(kUrlTokens));
            break;
        case 1:
            url.erase(at, 1 + random.Below(4));
            break;
        case 2:
            if (!url.empty())
                url[at] = static_cast<wchar_t>(random.Below(0x10000));
            break;
        default:
            url.resize(at);
            break;
        }
    }
    return url;
}

bool HasUpper(const std::wstring& text)
{
    for (wchar_t c : text) {
        if (c >= L'A' && c <= L'Z')
            return true;
    }
    return false;
}

// Heads --------------------------------------------------------------------------------------

const char* const kStatusLines[] = {"HTTP/1.1 200 OK", "HTTP/1.0 404 Not Found", "http/1.1 0x1F4", "HTTP/1.1",
                                    "ICY 200 OK", "HTTP/1.1 -5", "HTTP/1.1 99999999999999999999999", "", " ",
                                    "HTTP/ 301", "HTTP/1.1 302 Found"};
const char* const kLengths[] = {"0", "5", "05", "+5", "-1", "0x10", "268435456", "268435457", "9223372036854775807",
                                "9223372036854775808", "1 kB", "", "12", "300", "65536"};
const char* const kHeaderLines[] = {"Content-Encoding: deflate", "Content-Encoding: gzip", "content-encoding: DEFLATE",
                                    "Transfer-Encoding: chunked", "Transfer-Encoding: identity",
                                    "Location: http://127.0.0.1/x", "NoColonHere", ": nameless", "X-A:",
                                    "X-Utf8: caf\xC3\xA9", "X-Bad: \xFF\xFE\xC3", "Server: test"};
const char* const kHeadTokens[] = {"\r\n", "\r\n\r\n", "\r", "\n", "\n\n", ":", " ", "\t", "Content-Length: ",
                                   "HTTP/", "0x", "\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xFF", "9", "-"};

std::string MakeHead(Random& random)
{
    const char* end = random.OneIn(10) ? "\n" : "\r\n";
    std::string head = random.Pick(kStatusLines);
    head += end;
    uint32_t lines = random.OneIn(500) ? 3000 : random.Below(8);
    for (uint32_t i = 0; i < lines; ++i) {
        switch (random.Below(4)) {
        case 0:
            head += std::string(random.OneIn(2) ? "Content-Length: " : "content-length:") + random.Pick(kLengths);
            break;
        case 1:
            head += random.Pick(kHeaderLines);
            break;
        case 2:
            head += "X-" + std::to_string(random.Below(100)) + ": " + random.Bytes(random.Below(13));
            break;
        default:
            head += "Content-Length: " + std::to_string(random.Below(100000));
            break;
        }
        head += end;
    }
    if (!random.OneIn(8))
        head += "\r\n";
    head += random.Bytes(random.Below(random.OneIn(4) ? 65 : 1));
    for (uint32_t n = random.Below(4); n > 0; --n) {
        size_t at = head.empty() ? 0 : random.Below(static_cast<uint32_t>(head.size()));
        switch (random.Below(9)) {
        case 0:
            head.insert(at, random.Pick(kHeadTokens));
            break;
        case 1:
            head.erase(at, 1 + random.Below(8));
            break;
        case 2:
            if (!head.empty())
                head[at] = static_cast<char>(random.Below(256));
            break;
        case 3:
            head.insert(at, head.substr(at, random.Below(32)));
            break;
        case 4:
            head.resize(at);
            break;
        default:
            if (!head.empty())
                head[at] = random.Pick(kHeadTokens)[0];
            break;
        }
    }
    if (head.size() > 32768)
        head.resize(32768);
    return head;
}

size_t BlankLine(const std::string& bytes, size_t count)
{
    for (size_t i = 0; i + 4 <= count; ++i) {
        if (std::memcmp(bytes.data() + i, "\r\n\r\n", 4) == 0)
            return i;
    }
    return std::string::npos;
}

}  // namespace

TEST(HttpRobustness, MillionRandomUrls)
{
    std::printf("seed 0x%08X, %d URLs\n", kSeed, kRounds);
    Random random(kSeed);
    uint64_t start = PerformanceMilliseconds();
    int accepted = 0;
    HttpUrl u;
    for (int round = 0; round < kRounds; ++round) {
        std::wstring text = MakeUrl(random);
        if (!u.Parse(text))
            continue;
        ++accepted;
        ASSERT_EQ(u.url, text) << round;
        ASSERT_EQ(u.host.find_first_of(L":/"), std::wstring::npos) << round;
        ASSERT_FALSE(HasUpper(u.host)) << round;
        ASSERT_FALSE(HasUpper(u.scheme)) << round;
        ASSERT_TRUE(u.scheme.empty() || u.scheme.compare(u.scheme.size() - 3, 3, L"://") == 0) << round;
        ASSERT_LE(u.port, 65535u) << round;
        ASSERT_FALSE(u.pathAndQuery.empty()) << round;
        ASSERT_EQ(u.pathAndQuery[0], L'/') << round;
        size_t question = u.pathAndQuery.find(L'?');
        ASSERT_EQ(u.path, u.pathAndQuery.substr(0, question)) << round;
        ASSERT_EQ(u.query, question == std::wstring::npos ? std::wstring() : u.pathAndQuery.substr(question + 1))
            << round;
        for (const auto& param : u.queryParams)
            ASSERT_FALSE(param.first.empty()) << round;
    }
    std::printf("%d URLs accepted, %lld ms\n", accepted, static_cast<long long>(PerformanceMilliseconds() - start));
    EXPECT_GT(accepted, kRounds / 10);
    EXPECT_LT(accepted, kRounds);
}

TEST(HttpRobustness, MillionRandomHeadsNeverReadPastTheirBytes)
{
    std::printf("seed 0x%08X, %d heads\n", kSeed, kRounds);
    GuardedBuffer buffer(65536);
    ASSERT_TRUE(buffer.Guarded());
    Random random(kSeed);
    RateMeter meter;
    BodySink sink(meter);
    uint64_t start = PerformanceMilliseconds();
    int complete = 0, refused = 0, pending = 0, prefixRuns = 0;
    for (int round = 0; round < kRounds; ++round) {
        std::string head = MakeHead(random);
        std::wstring outputPath = random.OneIn(4) ? L"" : L"unused.bin";
        bool headOnly = random.OneIn(8);

        sink.Begin(outputPath, headOnly);
        int64_t result = sink.TakeHead(buffer.Place(head.data(), head.size()), head.size());
        size_t blank = BlankLine(head, head.size());
        if (blank == std::string::npos) {
            ASSERT_EQ(result, 0) << round;
            ++pending;
        } else if (result < 0) {
            ASSERT_EQ(result, -1) << round;
            ++refused;
        } else {
            ASSERT_EQ(result, static_cast<int64_t>(blank + 4)) << round;
            ASSERT_GE(sink.head.expected, 0) << round;
            ASSERT_EQ(sink.head.deflate, 0) << round;
            ASSERT_EQ(sink.head.chunked, 0) << round;
            bool length = sink.head.headers.count(L"content-length") != 0;
            if (!length) {
                ASSERT_EQ(sink.head.expected, INT64_MAX) << round;
            }
            bool kept = length && outputPath.empty() && !headOnly && sink.head.expected > 0;
            ASSERT_EQ(sink.body != nullptr, kept) << round;
            ++complete;
        }
        if (sink.body) {
            ASSERT_LE(sink.head.expected, 256 * 1024 * 1024) << round;
        }
        sink.End();

        // Now and then feed growing prefixes, as the receive loop does: no prefix before the blank
        // line completes, and the first one that holds it gives the same answer as the whole head.
        if (random.OneIn(64)) {
            ++prefixRuns;
            for (size_t count = 0; count <= head.size(); count += 1 + random.Below(48)) {
                sink.Begin(outputPath, headOnly);
                int64_t partial = sink.TakeHead(buffer.Place(head.data(), count), count);
                sink.End();
                if (blank == std::string::npos || count < blank + 4) {
                    ASSERT_EQ(partial, 0) << round << " " << count;
                } else {
                    ASSERT_EQ(partial, result) << round << " " << count;
                }
            }
        }
    }
    std::printf("%d complete, %d refused, %d incomplete, %d prefix runs, %lld ms\n", complete, refused, pending,
                prefixRuns, static_cast<long long>(PerformanceMilliseconds() - start));
    EXPECT_GT(complete, kRounds / 10);
    EXPECT_GT(refused, kRounds / 10);
    EXPECT_GT(pending, kRounds / 100);
    PoolDrain();
}
