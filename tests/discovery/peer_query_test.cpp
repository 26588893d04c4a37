// The sharing side of discovery without a network: queries written by the updater read back
// record for record, every way a query can be broken, and answers that the updater applies.
#include <gtest/gtest.h>
#include "release/update_item.h"
#include "discovery/peer_query.h"
#include "discovery/datagrams.h"
#include "runtime/text.h"
#include "support/datagrams.h"

#include <cstring>
#include <list>
#include <string>
#include <vector>

namespace {

const std::string kPrefix = "wHttpShare8090";
const uint32_t kSender = 0x0701A8C0;

std::list<UpdateItem> Items(size_t count, size_t nameLength = 12)
{
    std::list<UpdateItem> items;
    for (size_t i = 0; i < count; ++i) {
        UpdateItem item;
        item.name = L"dir\\\u00e9" + std::wstring(nameLength, static_cast<wchar_t>(L'a' + i % 26)) + std::to_wstring(i);
        item.hash = L"00112233445566778899AABBCCDDEEFF0011" + std::to_wstring(1000 + i % 9000);
        item.size = 0x0102030405060708ull + i;
        items.push_back(item);
    }
    return items;
}

std::vector<PeerRecord> Read(const std::string& datagram, const std::string& prefix = kPrefix)
{
    std::vector<unsigned char> copy(datagram.begin(), datagram.end());
    return ReadPeerQuery(copy.data(), copy.size(), prefix);
}

void ExpectRecordIs(const PeerRecord& record, const UpdateItem& item)
{
    EXPECT_EQ(record.name, item.name);
    EXPECT_EQ(BytesToHex(record.hash.data(), record.hash.size()), item.hash);
    EXPECT_EQ(record.size, item.size);
}

void SetLength(std::string& datagram, uint64_t length)
{
    datagram.replace(kPrefix.size() + 2, 4, BigEndian(length, 4));
}

std::string Record(const std::string& name, uint64_t size, char hashLength = 20, char marker = 1, char sizeMarker = 1)
{
    return std::string(1, marker) + static_cast<char>(name.size()) + name + hashLength + std::string(20, '\x5A') +
           sizeMarker + BigEndian(size, 8);
}

// A query with a correct length field around the given records.
std::string Query(const std::string& records, char version = 2, char kind = 1, const std::string& prefix = kPrefix)
{
    std::string datagram = prefix + version + kind + BigEndian(0, 4) + records + '\0';
    datagram.replace(prefix.size() + 2, 4, BigEndian(datagram.size(), 4));
    return datagram;
}

}  // namespace

TEST(SharedQueryReader, ReadsBackEveryRecordTheUpdaterWrites)
{
    std::list<UpdateItem> items = Items(150);
    std::vector<std::string> datagrams = BuildPeerQueries(items, 8090);
    ASSERT_GT(datagrams.size(), 3u);
    auto item = items.begin();
    for (const std::string& datagram : datagrams) {
        for (const PeerRecord& record : Read(datagram)) {
            ASSERT_NE(item, items.end());
            ExpectRecordIs(record, *item++);
        }
    }
    EXPECT_EQ(item, items.end());
}

TEST(SharedQueryReader, ForeignOrBrokenHeadersGiveNothing)
{
    std::string good = Query(Record("a.txt", 5));
    ASSERT_EQ(Read(good).size(), 1u);
    EXPECT_TRUE(Read(good, "wHttpShare8091").empty());
    EXPECT_TRUE(Read(Query(Record("a.txt", 5), 2, 1, "wHttpShare8091")).empty());
    EXPECT_TRUE(Read(Query(Record("a.txt", 5), 1)).empty());
    EXPECT_TRUE(Read(Query(Record("a.txt", 5), 0)).empty());
    EXPECT_EQ(Read(Query(Record("a.txt", 5), 3)).size(), 1u);
    EXPECT_TRUE(Read(Query(Record("a.txt", 5), 2, 2)).empty());
    EXPECT_TRUE(Read(Query(Record("a.txt", 5), 2, 0)).empty());
    std::string longer = good;
    SetLength(longer, good.size() + 1);
    EXPECT_TRUE(Read(longer).empty());
    SetLength(longer, 0xFFFFFFFFu);
    EXPECT_TRUE(Read(longer).empty());
    std::string shorter = good;
    SetLength(shorter, kPrefix.size() + 5);
    EXPECT_TRUE(Read(shorter).empty());
    SetLength(shorter, kPrefix.size() + 6);
    EXPECT_TRUE(Read(shorter).empty());
    EXPECT_TRUE(Read("").empty());
    EXPECT_TRUE(Read(kPrefix).empty());
}

TEST(SharedQueryReader, BytesAfterTheLengthFieldAreNotRead)
{
    std::string datagram = Query(Record("a.txt", 5));
    size_t oneRecord = datagram.size();
    datagram.pop_back();
    datagram += Record("b.txt", 6) + '\0';
    EXPECT_EQ(Read(datagram).size(), 1u);
    SetLength(datagram, datagram.size());
    EXPECT_EQ(Read(datagram).size(), 2u);
    SetLength(datagram, oneRecord - 1);
    EXPECT_EQ(Read(datagram).size(), 1u);
}

TEST(SharedQueryReader, EveryCutOfAQueryIsIgnoredOrGivesTheWholeRecordsBeforeIt)
{
    std::list<UpdateItem> items = Items(20);
    std::string datagram = BuildPeerQueries(items, 8090).at(0);
    size_t header = kPrefix.size() + 6;
    std::vector<size_t> ends;  // where each record ends
    for (const UpdateItem& item : items)
        ends.push_back((ends.empty() ? header : ends.back()) + Record(WideToUtf8(item.name), 0).size());
    for (size_t cut = 0; cut < datagram.size(); ++cut) {
        std::string part = datagram.substr(0, cut);
        EXPECT_TRUE(Read(part).empty()) << cut;
        if (cut < header)
            continue;
        SetLength(part, cut);
        std::vector<PeerRecord> records = Read(part);
        size_t whole = 0;
        while (whole < ends.size() && ends[whole] <= cut)
            ++whole;
        ASSERT_EQ(records.size(), whole) << cut;
        auto item = items.begin();
        for (const PeerRecord& record : records)
            ExpectRecordIs(record, *item++);
    }
}

TEST(SharedQueryReader, ABrokenRecordEndsTheQuery)
{
    std::string first = Record("a.txt", 5);
    EXPECT_EQ(Read(Query(first + Record("b", 1, 20, 2) + Record("c", 1))).size(), 1u);
    EXPECT_EQ(Read(Query(first + Record("b", 1, 20, 0) + Record("c", 1))).size(), 1u);
    EXPECT_EQ(Read(Query(first + Record("b", 1, 19) + Record("c", 1))).size(), 1u);
    EXPECT_EQ(Read(Query(first + Record("b", 1, 21) + Record("c", 1))).size(), 1u);
    EXPECT_EQ(Read(Query(first + Record("b", 1, 20, 1, 0) + Record("c", 1))).size(), 1u);
    EXPECT_EQ(Read(Query(first + Record("b", 1) + Record("c", 1))).size(), 3u);
}

TEST(SharedQueryReader, ANameTooLongForTheUpdaterToWriteEndsTheQueryThere)
{
    std::list<UpdateItem> items = Items(3);
    std::next(items.begin())->name = std::wstring(255, L'x');
    std::vector<PeerRecord> records = Read(BuildPeerQueries(items, 8090).at(0));
    ASSERT_EQ(records.size(), 1u);
    ExpectRecordIs(records[0], items.front());
}

TEST(SharedQueryReader, NameBytesHashAndSizeAsSent)
{
    std::string name = "\xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80.txt";
    std::vector<PeerRecord> records = Read(Query(Record(name, 0xFEDCBA9876543210ull) + Record("", 0)));
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].name, L"\u00e9t\u00e9 \U0001F600.txt");
    EXPECT_EQ(records[0].size, 0xFEDCBA9876543210ull);
    EXPECT_EQ(BytesToHex(records[0].hash.data(), 20), L"5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A");
    EXPECT_EQ(records[1].name, L"");
}

TEST(SharedQueryReader, RecordsPerQueryAreCapped)
{
    std::string records;
    for (size_t i = 0; i < kMaxQueryRecords + 10; ++i)
        records += Record("n", i);
    std::vector<PeerRecord> read = Read(Query(records));
    ASSERT_EQ(read.size(), kMaxQueryRecords);
    EXPECT_EQ(read.back().size, kMaxQueryRecords - 1);
}

TEST(SharedAnswerWriter, TheUpdaterAppliesEveryAnswer)
{
    std::list<UpdateItem> items = Items(200, 30);
    std::vector<PeerRecord> records;
    for (UpdateItem& item : items) {
        PeerRecord record;
        record.name = item.name;
        for (size_t i = 0; i < 20; ++i)
            record.hash[i] = static_cast<unsigned char>(records.size() + i);
        record.size = 1000 + records.size();
        records.push_back(record);
        item.hash = L"stale";
        item.size = 1;
    }
    std::vector<std::string> datagrams = BuildPeerAnswers(records, 8090);
    ASSERT_GT(datagrams.size(), 3u);
    for (const std::string& datagram : datagrams) {
        ASSERT_LE(datagram.size(), 1200u);
        std::vector<unsigned char> copy(datagram.begin(), datagram.end());
        ASSERT_TRUE(ApplyPeerAnswer(copy.data(), copy.size(), kSender, kPrefix, items));
    }
    size_t i = 0;
    for (const UpdateItem& item : items) {
        EXPECT_EQ(item.peers, std::set<uint32_t>{kSender});
        EXPECT_EQ(item.hash, BytesToHex(records[i].hash.data(), 20));
        EXPECT_EQ(item.size, records[i].size);
        ++i;
    }
}

TEST(SharedAnswerWriter, HeaderFieldsAndPacking)
{
    std::vector<PeerRecord> records(100);
    for (size_t i = 0; i < records.size(); ++i)
        records[i].name = std::wstring(i % 40, L'n');
    std::vector<std::string> datagrams = BuildPeerAnswers(records, 8090);
    size_t next = 0;
    for (size_t d = 0; d < datagrams.size(); ++d) {
        const std::string& datagram = datagrams[d];
        ASSERT_EQ(datagram.compare(0, kPrefix.size(), kPrefix), 0);
        EXPECT_EQ(datagram[kPrefix.size()], 2);
        EXPECT_EQ(datagram[kPrefix.size() + 1], 2);
        EXPECT_EQ(datagram.substr(kPrefix.size() + 2, 4), BigEndian(datagram.size(), 4));
        uint32_t count = 0;
        for (int b = 0; b < 4; ++b)
            count = count << 8 | static_cast<unsigned char>(datagram[kPrefix.size() + 6 + b]);
        size_t bytes = kPrefix.size() + 10;
        for (uint32_t r = 0; r < count; ++r)
            bytes += 1 + 20 + 1 + records[next + r].name.size() + 8;
        EXPECT_EQ(bytes, datagram.size());
        next += count;
        // Closed only because the next record would not have fitted.
        if (d + 1 < datagrams.size()) {
            EXPECT_GT(datagram.size() + 30 + records[next].name.size(), 1200u);
        }
    }
    EXPECT_EQ(next, records.size());
}

TEST(SharedAnswerWriter, NamesTooLongToWriteAreLeftOutAndNothingGivesNoDatagram)
{
    EXPECT_TRUE(BuildPeerAnswers({}, 8090).empty());
    std::vector<PeerRecord> records(3);
    records[0].name = L"a";
    records[1].name = std::wstring(255, L'b');
    records[2].name = std::wstring(127, L'\u00e9');  // 254 bytes in UTF-8
    std::vector<std::string> datagrams = BuildPeerAnswers(records, 8090);
    ASSERT_EQ(datagrams.size(), 1u);
    EXPECT_EQ(datagrams[0].substr(kPrefix.size() + 6, 4), BigEndian(2, 4));
    EXPECT_EQ(datagrams[0].size(), kPrefix.size() + 10 + 30 + 1 + 30 + 254);
    records.resize(2);
    records.erase(records.begin());
    EXPECT_TRUE(BuildPeerAnswers(records, 8090).empty());
}
