// Randomized robustness of the peer answer handler: a million generated and mutated answer
// datagrams, each placed so that it ends exactly where a no-access page begins, so a read past
// the received bytes faults. Each round checks what the handler may and may not change; the
// seed is fixed and printed.
#include <gtest/gtest.h>
#include "runtime/clock.h"
#include "discovery/datagrams.h"
#include "support/datagrams.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kSeed = 0x9EE25EED;
constexpr int kRounds = 1000000;
constexpr size_t kReceiveSize = 2048;
const std::string kPrefix = "wHttpShare8090";
const uint32_t kSender = 0x0B4D4D0A;

const char* const kOtherPrefixes[] = {"wHttpShare8091", "wHttpShare809", "wHttpShare80900", "", "wHttpShare",
                                      "WHTTPSHARE8090", "wHttpShare80"};
const uint8_t kVersions[] = {0, 1, 1, 2, 2, 2, 2, 3, 255};
const uint8_t kOtherKinds[] = {0, 1, 3, 255};
// Item names first, then near misses and odd bytes.
const std::string kNames[] = {"a.txt", "dir\\b.bin", "\xC3\xA9t\xC3\xA9.dat", "A.TXT", "dir/b.bin", "a.tx",
                              "a.txt.", "", "\xFF\xFE", "\xC3", std::string("a\0txt", 5)};
const size_t kItemCount = 3;

uint64_t RandomSize(Random& random)
{
    return static_cast<uint64_t>(random.Below(0xFFFFFFFFu)) << 32 | random.Below(0xFFFFFFFFu);
}

std::string MakeAnswer(Random& random)
{
    std::string prefix = random.OneIn(10) ? random.Pick(kOtherPrefixes) : kPrefix;
    uint8_t version = random.Pick(kVersions);
    uint8_t kind = random.OneIn(8) ? random.Pick(kOtherKinds) : 2;
    uint32_t records = random.OneIn(20) ? random.Below(40) : random.Below(6);
    std::string body;
    for (uint32_t i = 0; i < records; ++i) {
        if (version >= 2) {
            size_t hashLength = random.OneIn(6) ? random.Below(256) : 20;
            body += static_cast<char>(hashLength) + random.Bytes(hashLength);
        }
        std::string name = random.OneIn(10) ? random.Bytes(random.Below(256)) : random.Pick(kNames);
        body += static_cast<char>(name.size()) + name;
        if (version >= 2)
            body += BigEndian(RandomSize(random), 8);
    }
    uint32_t countField = random.OneIn(8) ? (random.OneIn(2) ? 0xFFFFFFFFu : random.Below(50)) : records;
    std::string datagram = prefix + static_cast<char>(version) + static_cast<char>(kind) + BigEndian(0, 4) +
                           BigEndian(countField, 4) + body;
    return Garble(random, datagram, prefix.size(), kReceiveSize);
}

// What the handler must accept: the prefix, a whole header with a length that fits, an answer
// kind and a record count.
bool Acceptable(const std::string& datagram)
{
    size_t header = kPrefix.size() + 6;
    if (datagram.size() < header + 4 || datagram.compare(0, kPrefix.size(), kPrefix) != 0 ||
        datagram[kPrefix.size() + 1] != 2)
        return false;
    uint64_t length = LengthField(datagram, kPrefix.size());
    return length <= datagram.size();
}

bool IsUpperHex40(const std::wstring& text)
{
    if (text.size() != 40)
        return false;
    for (wchar_t c : text) {
        if (!((c >= L'0' && c <= L'9') || (c >= L'A' && c <= L'F')))
            return false;
    }
    return true;
}

}  // namespace

TEST(PeerRobustness, MillionAnswersNeverReadPastTheirBytes)
{
    std::printf("seed 0x%08X, %d answers\n", kSeed, kRounds);
    GuardedBuffer buffer(kReceiveSize);
    ASSERT_TRUE(buffer.Guarded());
    const std::wstring names[kItemCount] = {L"a.txt", L"dir\\b.bin", L"\u00e9t\u00e9.dat"};
    const std::string utf8Names[kItemCount] = {kNames[0], kNames[1], kNames[2]};
    const std::wstring oldHash = L"0123456789abcdef0123456789abcdef01234567";
    std::list<UpdateItem> items;
    for (const std::wstring& name : names) {
        items.emplace_back();
        items.back().name = name;
        items.back().hash = oldHash;
        items.back().size = 7;
    }

    Random random(kSeed);
    uint64_t start = PerformanceMilliseconds();
    int accepted = 0, peersAdded = 0, hashesReplaced = 0;
    for (int round = 0; round < kRounds; ++round) {
        std::string datagram = MakeAnswer(random);
        const auto* bytes = reinterpret_cast<const unsigned char*>(buffer.Place(datagram.data(), datagram.size()));
        bool result = ApplyPeerAnswer(bytes, datagram.size(), kSender, kPrefix, items);
        bool acceptable = Acceptable(datagram);
        ASSERT_EQ(result, acceptable) << round;
        accepted += result;
        bool versionTwo = acceptable && static_cast<unsigned char>(datagram[kPrefix.size()]) >= 2;
        size_t i = 0;
        for (UpdateItem& item : items) {
            bool changed = !item.peers.empty() || item.hash != oldHash || item.size != 7;
            if (!acceptable) {
                ASSERT_FALSE(changed) << round;
            } else if (changed) {
                ASSERT_EQ(item.peers, std::set<uint32_t>{kSender}) << round;
                // Only a record naming the item changes it: the name is somewhere in the bytes.
                ASSERT_NE(datagram.find(utf8Names[i]), std::string::npos) << round;
                if (!versionTwo) {
                    ASSERT_EQ(item.hash, oldHash) << round;
                    ASSERT_EQ(item.size, 7u) << round;
                } else {
                    ASSERT_TRUE(IsUpperHex40(item.hash)) << round;
                    ++hashesReplaced;
                }
                ++peersAdded;
            }
            if (changed) {
                item.peers.clear();
                item.hash = oldHash;
                item.size = 7;
            }
            ++i;
        }
    }
    std::printf("%d accepted, %d peers added, %d hashes replaced, %lld ms\n", accepted, peersAdded, hashesReplaced,
                static_cast<long long>(PerformanceMilliseconds() - start));
    EXPECT_GT(accepted, kRounds / 2);
    EXPECT_LT(accepted, kRounds * 9 / 10);
    EXPECT_GT(peersAdded, kRounds / 4);
    EXPECT_GT(hashesReplaced, kRounds / 10);
}
