// Randomized robustness of the query reader: generated and mutated query datagrams, each placed so
// that it ends where a no-access page begins, so a read past the received bytes faults. Each round
// checks what the reader may return; the seed is fixed and printed.
#include <gtest/gtest.h>
#include "discovery/peer_query.h"
#include "support/datagrams.h"

#include <cstdio>
#include <string>

namespace {

constexpr uint32_t kSeed = 0x0E7D5EED;
constexpr int kRounds = 300000;
constexpr size_t kReceiveSize = 65536;
const std::string kPrefix = "wHttpShare8090";

const char* const kOtherPrefixes[] = {"wHttpShare8091", "wHttpShare809", "", "WHTTPSHARE8090"};
const uint8_t kVersions[] = {0, 1, 2, 2, 2, 2, 3, 255};
const uint8_t kOtherKinds[] = {0, 2, 3, 255};

std::string MakeQuery(Random& random)
{
    std::string prefix = random.OneIn(10) ? random.Pick(kOtherPrefixes) : kPrefix;
    std::string datagram = prefix + static_cast<char>(random.Pick(kVersions)) +
                           static_cast<char>(random.OneIn(8) ? random.Pick(kOtherKinds) : 1) + BigEndian(0, 4);
    uint32_t records = random.OneIn(50) ? random.Below(600) : random.Below(40);
    bool oddHashes = random.OneIn(4);
    for (uint32_t i = 0; i < records; ++i) {
        std::string name = random.Bytes(random.OneIn(20) ? random.Below(256) : random.Below(30));
        datagram += '\x01' + std::string(1, static_cast<char>(name.size())) + name;
        datagram += static_cast<char>(oddHashes && random.OneIn(30) ? random.Below(256) : 20) + random.Bytes(20);
        datagram += '\x01' + BigEndian(static_cast<uint64_t>(random.Below(0xFFFFFFFFu)) << 20, 8);
    }
    datagram += '\0';
    return Garble(random, datagram, prefix.size(), kReceiveSize);
}

// A query the reader must take: the prefix, version 2 or later, the query kind and a length
// field that covers the header and no more than arrived.
bool Acceptable(const std::string& datagram)
{
    size_t header = kPrefix.size() + 6;
    if (datagram.size() < header || datagram.compare(0, kPrefix.size(), kPrefix) != 0 ||
        static_cast<unsigned char>(datagram[kPrefix.size()]) < 2 || datagram[kPrefix.size() + 1] != 1)
        return false;
    uint64_t length = LengthField(datagram, kPrefix.size());
    return length >= header && length <= datagram.size();
}

}  // namespace

TEST(PeerQueryRobustness, MutatedQueriesNeverReadPastTheirBytes)
{
    std::printf("seed 0x%08X, %d queries\n", kSeed, kRounds);
    GuardedBuffer buffer(kReceiveSize);
    ASSERT_TRUE(buffer.Guarded());
    Random random(kSeed);
    int accepted = 0, withRecords = 0, capped = 0;
    size_t recordsRead = 0;
    for (int round = 0; round < kRounds; ++round) {
        std::string datagram = MakeQuery(random);
        const auto* bytes = reinterpret_cast<const unsigned char*>(buffer.Place(datagram.data(), datagram.size()));
        std::vector<PeerRecord> records = ReadPeerQuery(bytes, datagram.size(), kPrefix);
        bool acceptable = Acceptable(datagram);
        accepted += acceptable;
        if (!acceptable) {
            ASSERT_TRUE(records.empty()) << round;
        }
        ASSERT_LE(records.size(), kMaxQueryRecords) << round;
        // Each record takes at least 32 bytes after the header.
        ASSERT_LE(records.size() * 32, datagram.size()) << round;
        withRecords += !records.empty();
        capped += records.size() == kMaxQueryRecords;
        recordsRead += records.size();
    }
    std::printf("%d accepted, %d with records, %d capped, %zu records\n", accepted, withRecords, capped, recordsRead);
    EXPECT_GT(accepted, kRounds / 3);
    EXPECT_GT(withRecords, kRounds / 3);
    EXPECT_GT(capped, 100);
}
