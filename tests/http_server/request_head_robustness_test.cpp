// Randomized robustness of the file server's readers: generated and mutated request heads, each
// placed so that it ends where a no-access page begins, so a read past the received bytes faults;
// and random targets turned into names. Each round checks what a result may be; the seed is fixed
// and printed.
#include <gtest/gtest.h>
#include "http_server/request_head.h"
#include "runtime/safe_name.h"
#include "http_server/target.h"
#include "support/fuzz.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>

namespace {

constexpr uint32_t kSeed = 0x4EADF00D;
constexpr int kRounds = 300000;
constexpr size_t kBufferSize = 20000;

const char* const kMethods[] = {"GET", "HEAD", "GET", "POST", "get", "", "G T"};
const char* const kTargets[] = {"/a.txt", "/dir/sub%20file.txt", "/%C3%A9", "/..", "/%2e%2e/x", "/CON", "/a?b",
                                "/a%", "/a%zz", "*", "/", "//a", "/C%3A", "/a%2Fb", "/a%00"};
const char* const kVersions[] = {"HTTP/1.1", "HTTP/1.0", "HTTP/2.0", "HTTP/1.1", "http/1.1", "HTTP/1"};
const char* const kLines[] = {"X: y", "X-Long: ", "Y:\t z\t", "Accept: */*"};
const char* const kBadLines[] = {"Host: b", "bad", " folded", "Host :a", "X: \x01"};
const char* const kEnds[] = {"\r\n", "\r\n", "\r\n", "\n", "\r"};
const uint32_t kStatuses[] = {400, 405, 414, 431, 505};

std::string MakeHead(Random& random)
{
    std::string head = std::string(random.Pick(kMethods)) + " " + random.Pick(kTargets) + " " + random.Pick(kVersions);
    head += random.OneIn(20) ? random.Pick(kEnds) : "\r\n";
    if (!random.OneIn(10))
        head += "Host: a\r\n";
    for (uint32_t n = random.Below(5); n > 0; --n) {
        head += random.OneIn(10) ? random.Pick(kBadLines) : random.Pick(kLines);
        if (random.OneIn(50))
            head += std::string(random.Below(9000), 'v');
        head += random.OneIn(20) ? random.Pick(kEnds) : "\r\n";
    }
    head += "\r\n";
    for (uint32_t n = random.OneIn(3) ? random.Below(4) : 0; n > 0; --n) {
        size_t at = random.Below(static_cast<uint32_t>(head.size()));
        switch (random.Below(4)) {
        case 0:
            head[at] = static_cast<char>(random.Below(256));
            break;
        case 1:
            head.resize(at);
            break;
        case 2:
            head.insert(at, 1, static_cast<char>(random.Below(256)));
            break;
        default:
            head.erase(at, 1);
            break;
        }
        if (head.empty())
            break;
    }
    return head.substr(0, kBufferSize);
}

}  // namespace

TEST(RequestHeadRobustness, MutatedHeadsNeverReadPastTheirBytes)
{
    std::printf("seed 0x%08X, %d heads\n", kSeed, kRounds);
    GuardedBuffer buffer(kBufferSize);
    ASSERT_TRUE(buffer.Guarded());
    Random random(kSeed);
    int complete = 0, incomplete = 0, refused = 0, named = 0;
    for (int round = 0; round < kRounds; ++round) {
        std::string bytes = MakeHead(random);
        const char* at = buffer.Place(bytes.data(), bytes.size());
        RequestHead head;
        int64_t used = ParseRequestHead(at, bytes.size(), head);
        if (used > 0) {
            ++complete;
            ASSERT_LE(static_cast<size_t>(used), kMaxRequestHead) << round;
            ASSERT_EQ(bytes.compare(static_cast<size_t>(used) - 4, 4, "\r\n\r\n"), 0) << round;
            ASSERT_TRUE(head.method == "GET" || head.method == "HEAD") << round;
            ASSERT_EQ(head.target[0], '/') << round;
            ASSERT_EQ(head.refusal, 0u) << round;
            std::wstring name = NameFromTarget(head.target);
            if (!name.empty()) {
                ++named;
                ASSERT_TRUE(IsSafeRelativeName(name)) << round;
            }
        } else if (used == 0) {
            ++incomplete;
            ASSERT_EQ(head.refusal, 0u) << round;
            ASSERT_EQ(bytes.find("\r\n\r\n"), std::string::npos) << round;
            ASSERT_LE(bytes.size(), kMaxRequestLine + 1) << round;
        } else {
            ++refused;
            ASSERT_EQ(used, -1) << round;
            ASSERT_NE(std::find(std::begin(kStatuses), std::end(kStatuses), head.refusal), std::end(kStatuses)) << round;
        }
    }
    std::printf("%d complete, %d incomplete, %d refused, %d named\n", complete, incomplete, refused, named);
    EXPECT_GT(complete, kRounds / 20);
    EXPECT_GT(refused, kRounds / 10);
    EXPECT_GT(named, kRounds / 50);
}

TEST(RequestHeadRobustness, RandomTargetsNeverGiveAnUnsafeName)
{
    const char pieces[] = "/%.\\:aC0N2eE5fF?#$ ";
    Random random(kSeed + 1);
    int named = 0;
    for (int round = 0; round < kRounds; ++round) {
        std::string target(random.Below(24), '\0');
        for (char& c : target)
            c = random.OneIn(8) ? static_cast<char>(random.Below(256)) : pieces[random.Below(sizeof(pieces) - 1)];
        if (random.OneIn(2) && !target.empty())
            target[0] = '/';
        std::wstring name = NameFromTarget(target);
        if (!name.empty()) {
            ++named;
            ASSERT_TRUE(IsSafeRelativeName(name)) << round;
            ASSERT_EQ(name.find(L'/'), std::wstring::npos) << round;
            ASSERT_NE(name.find_first_not_of(L"\\."), std::wstring::npos) << round;
        }
    }
    std::printf("%d of %d targets named a file\n", named, kRounds);
    EXPECT_GT(named, kRounds / 100);
}
