// Peer discovery datagrams without a network: the bytes of query datagrams field by field, and
// answers of both versions applied to the items, including the ones that must change nothing.
#include <gtest/gtest.h>
#include "discovery/datagrams.h"
#include "support/datagrams.h"

#include <cstring>
#include <string>
#include <vector>

namespace {

const std::string kPrefix = "wHttpShare8090";
const uint32_t kSender = 0x0301A8C0;  // 192.168.1.3 as stored
const uint32_t kOtherSender = 0x0401A8C0;

UpdateItem Item(const std::wstring& name, const std::wstring& hash, uint64_t size)
{
    UpdateItem item;
    item.name = name;
    item.hash = hash;
    item.size = size;
    return item;
}

uint32_t LengthField(const std::string& datagram)
{
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(datagram[kPrefix.size() + 2 + i]);
    return value;
}

std::string Header(uint8_t version, uint8_t kind, uint32_t length, const std::string& prefix = kPrefix)
{
    return prefix + static_cast<char>(version) + static_cast<char>(kind) + BigEndian(length, 4);
}

// A query record as it must appear on the wire.
std::string QueryRecord(const std::string& name, const std::string& hash, uint64_t size)
{
    return "\x01" + std::string(1, static_cast<char>(name.size())) + name + "\x14" + hash + "\x01" + BigEndian(size, 8);
}

std::string Bytes(std::initializer_list<int> values)
{
    std::string out;
    for (int v : values)
        out += static_cast<char>(v);
    return out;
}

struct AnswerRecord {
    std::string hash;  // used by version 2 and later
    std::string name;
    uint64_t size;
};

// An answer datagram; the length field is the real length unless given.
std::string Answer(uint8_t version, const std::vector<AnswerRecord>& records, const std::string& prefix = kPrefix,
                   uint8_t kind = 2)
{
    std::string body = BigEndian(records.size(), 4);
    for (const AnswerRecord& record : records) {
        if (version >= 2)
            body += static_cast<char>(record.hash.size()) + record.hash;
        body += static_cast<char>(record.name.size()) + record.name;
        if (version >= 2)
            body += BigEndian(record.size, 8);
    }
    std::string datagram = Header(version, kind, 0, prefix) + body;
    datagram.replace(prefix.size() + 2, 4, BigEndian(datagram.size(), 4));
    return datagram;
}

bool Apply(const std::string& datagram, std::list<UpdateItem>& items, uint32_t sender = kSender)
{
    return ApplyPeerAnswer(reinterpret_cast<const unsigned char*>(datagram.data()), datagram.size(), sender, kPrefix,
                           items);
}

const std::string kHashAbc = Bytes({0xA9, 0x99, 0x3E, 0x36, 0x47, 0x06, 0x81, 0x6A, 0xBA, 0x3E,
                                    0x25, 0x71, 0x78, 0x50, 0xC2, 0x6C, 0x9C, 0xD0, 0xD8, 0x9D});
const std::wstring kHashAbcText = L"A9993E364706816ABA3E25717850C26C9CD0D89D";
const std::wstring kOldHash = L"0123456789abcdef0123456789ABCDEF01234567";

class PeerAnswer : public testing::Test {
protected:
    void SetUp() override
    {
        items.push_back(Item(L"a.txt", kOldHash, 10));
        items.push_back(Item(L"dir\\\u00e9.bin", kOldHash, 20));
    }
    UpdateItem& First() { return items.front(); }
    UpdateItem& Second() { return items.back(); }
    void ExpectUnchanged()
    {
        for (const UpdateItem& item : items) {
            EXPECT_EQ(item.hash, kOldHash);
            EXPECT_TRUE(item.peers.empty());
        }
        EXPECT_EQ(First().size, 10u);
        EXPECT_EQ(Second().size, 20u);
    }

    std::list<UpdateItem> items;
};

}  // namespace

TEST(PeerQuery, PrefixCarriesThePort)
{
    EXPECT_EQ(PeerPrefix(8090), "wHttpShare8090");
    EXPECT_EQ(PeerPrefix(1), "wHttpShare1");
    EXPECT_EQ(PeerPrefix(65535), "wHttpShare65535");
}

TEST(PeerQuery, RecordsFieldByField)
{
    std::list<UpdateItem> items;
    items.push_back(Item(L"a.txt", kHashAbcText, 3));
    items.push_back(Item(L"dir\\\u00e9.bin", L"da39a3ee5e6b4b0d3255bfef95601890afd80709", 0x0102030405060708ull));
    std::vector<std::string> datagrams = BuildPeerQueries(items, 8090);
    ASSERT_EQ(datagrams.size(), 1u);
    const std::string& d = datagrams[0];

    EXPECT_EQ(d.substr(0, 14), "wHttpShare8090");
    EXPECT_EQ(d[14], 2);  // version
    EXPECT_EQ(d[15], 1);  // kind: query
    EXPECT_EQ(LengthField(d), d.size());
    size_t at = 20;
    // First record: marker, name length and UTF-8 bytes, hash length and bytes, marker, size.
    EXPECT_EQ(d[at], 1);
    EXPECT_EQ(d[at + 1], 5);
    EXPECT_EQ(d.substr(at + 2, 5), "a.txt");
    EXPECT_EQ(d[at + 7], 20);
    EXPECT_EQ(d.substr(at + 8, 20), kHashAbc);
    EXPECT_EQ(d[at + 28], 1);
    EXPECT_EQ(d.substr(at + 29, 8), Bytes({0, 0, 0, 0, 0, 0, 0, 3}));
    at += 37;
    // Second record: the name keeps its '\' and is UTF-8; a lower-case hash parses the same.
    EXPECT_EQ(d[at], 1);
    EXPECT_EQ(d[at + 1], 10);
    EXPECT_EQ(d.substr(at + 2, 10), "dir\\\xC3\xA9.bin");
    EXPECT_EQ(d[at + 12], 20);
    EXPECT_EQ(d.substr(at + 13, 20), Bytes({0xDA, 0x39, 0xA3, 0xEE, 0x5E, 0x6B, 0x4B, 0x0D, 0x32, 0x55,
                                            0xBF, 0xEF, 0x95, 0x60, 0x18, 0x90, 0xAF, 0xD8, 0x07, 0x09}));
    EXPECT_EQ(d[at + 33], 1);
    EXPECT_EQ(d.substr(at + 34, 8), Bytes({1, 2, 3, 4, 5, 6, 7, 8}));
    at += 42;
    // The end byte.
    EXPECT_EQ(d[at], 0);
    EXPECT_EQ(d.size(), at + 1);
}

TEST(PeerQuery, LongNameIsLeftOutAndOddHashDigitsCountAsZero)
{
    std::list<UpdateItem> items;
    items.push_back(Item(std::wstring(254, L'n'), L"zz" + std::wstring(38, L'F'), 1));
    items.push_back(Item(std::wstring(255, L'n'), L"1g2", 2));
    // 128 two-byte characters: 256 bytes of UTF-8.
    items.push_back(Item(std::wstring(128, L'\u00e9'), L"", 3));
    std::vector<std::string> datagrams = BuildPeerQueries(items, 8090);
    ASSERT_EQ(datagrams.size(), 1u);
    std::string expected = Header(2, 1, 0);
    expected += QueryRecord(std::string(254, 'n'), Bytes({0x00}) + std::string(19, '\xFF'), 1);
    // No name length and no name for 255 bytes and more: the hash length follows the marker.
    expected += "\x01\x14" + Bytes({0x10, 0x20}) + std::string(18, '\0') + "\x01" + BigEndian(2, 8);
    expected += "\x01\x14" + std::string(20, '\0') + "\x01" + BigEndian(3, 8);
    expected += '\0';
    expected.replace(16, 4, BigEndian(expected.size(), 4));
    EXPECT_EQ(datagrams[0], expected);
}

TEST(PeerQuery, NoItemsNoDatagram)
{
    EXPECT_TRUE(BuildPeerQueries({}, 8090).empty());
}

TEST(PeerQuery, DatagramIsClosedOnceARecordTakesItBeyond1200Bytes)
{
    // Records of 132 bytes after a 20-byte header: the ninth takes the datagram to 1208 bytes.
    std::list<UpdateItem> items;
    for (int i = 0; i < 20; ++i)
        items.push_back(Item(std::wstring(99, L'a') + static_cast<wchar_t>(L'A' + i), kHashAbcText, i));
    std::vector<std::string> datagrams = BuildPeerQueries(items, 8090);
    ASSERT_EQ(datagrams.size(), 3u);
    EXPECT_EQ(datagrams[0].size(), 20u + 9 * 132 + 1);
    EXPECT_EQ(datagrams[1].size(), 20u + 9 * 132 + 1);
    EXPECT_EQ(datagrams[2].size(), 20u + 2 * 132 + 1);
    int record = 0;
    for (const std::string& d : datagrams) {
        EXPECT_EQ(d.substr(0, 16), kPrefix + "\x02\x01");
        EXPECT_EQ(LengthField(d), d.size());
        EXPECT_EQ(d.back(), '\0');
        for (size_t at = 20; at + 1 < d.size(); at += 132, ++record) {
            std::string name = std::string(99, 'a') + static_cast<char>('A' + record);
            EXPECT_EQ(d.substr(at, 132), QueryRecord(name, kHashAbc, record)) << record;
        }
    }
    EXPECT_EQ(record, 20);
}

TEST(PeerQuery, ExactlyTwelveHundredBytesDoesNotCloseTheDatagram)
{
    // Records of 118 bytes (86-byte names): ten of them give exactly 1200 bytes.
    std::list<UpdateItem> items;
    for (int i = 0; i < 10; ++i)
        items.push_back(Item(std::wstring(86, static_cast<wchar_t>(L'a' + i)), kHashAbcText, 7));
    std::vector<std::string> ten = BuildPeerQueries(items, 8090);
    ASSERT_EQ(ten.size(), 1u);
    EXPECT_EQ(ten[0].size(), 1201u);
    items.push_back(Item(std::wstring(86, L'z'), kHashAbcText, 7));
    std::vector<std::string> eleven = BuildPeerQueries(items, 8090);
    ASSERT_EQ(eleven.size(), 1u);
    EXPECT_EQ(eleven[0].size(), 1319u);
    EXPECT_EQ(LengthField(eleven[0]), 1319u);
}

TEST_F(PeerAnswer, VersionOneAddsTheSenderOnly)
{
    EXPECT_TRUE(Apply(Answer(1, {{"", "a.txt", 0}}), items));
    EXPECT_EQ(First().peers, std::set<uint32_t>{kSender});
    EXPECT_EQ(First().hash, kOldHash);
    EXPECT_EQ(First().size, 10u);
    EXPECT_TRUE(Second().peers.empty());
}

TEST_F(PeerAnswer, VersionTwoReplacesHashAndSize)
{
    EXPECT_TRUE(Apply(Answer(2, {{kHashAbc, "dir\\\xC3\xA9.bin", 0x1122334455667788ull}}), items));
    EXPECT_EQ(Second().peers, std::set<uint32_t>{kSender});
    EXPECT_EQ(Second().hash, kHashAbcText);
    EXPECT_EQ(Second().size, 0x1122334455667788ull);
    EXPECT_EQ(First().hash, kOldHash);
    EXPECT_TRUE(First().peers.empty());
    // Later versions read the same way.
    EXPECT_TRUE(Apply(Answer(3, {{std::string(20, '\xAB'), "a.txt", 5}}), items, kOtherSender));
    EXPECT_EQ(First().hash, L"ABABABABABABABABABABABABABABABABABABABAB");
    EXPECT_EQ(First().size, 5u);
}

TEST_F(PeerAnswer, ItemOfASignedReleaseKeepsItsHashAndSize)
{
    Second().sha256 = std::wstring(64, L'A');
    EXPECT_TRUE(Apply(Answer(2, {{kHashAbc, "dir\\\xC3\xA9.bin", 0x1122334455667788ull}}), items));
    EXPECT_EQ(Second().peers, std::set<uint32_t>{kSender});
    EXPECT_EQ(Second().hash, kOldHash);
    EXPECT_EQ(Second().size, 20u);
}

TEST_F(PeerAnswer, SeveralRecordsAndSendersMakeAnOrderedSetOfPeers)
{
    std::string answer = Answer(1, {{"", "a.txt", 0}, {"", "dir\\\xC3\xA9.bin", 0}, {"", "a.txt", 0}});
    EXPECT_TRUE(Apply(answer, items, kOtherSender));
    EXPECT_TRUE(Apply(answer, items, kSender));
    EXPECT_TRUE(Apply(answer, items, kSender));
    EXPECT_EQ(First().peers, (std::set<uint32_t>{kSender, kOtherSender}));
    EXPECT_EQ(Second().peers, (std::set<uint32_t>{kSender, kOtherSender}));
}

TEST_F(PeerAnswer, UnknownOrDifferentlyWrittenNamesChangeNothing)
{
    EXPECT_TRUE(Apply(Answer(2, {{kHashAbc, "b.txt", 1}, {kHashAbc, "A.TXT", 1}, {kHashAbc, "dir/\xC3\xA9.bin", 1},
                                 {kHashAbc, "a.txt ", 1}, {kHashAbc, "", 1}}),
                      items));
    ExpectUnchanged();
}

TEST_F(PeerAnswer, WrongPrefixKindOrLengthIsIgnored)
{
    std::string good = Answer(2, {{kHashAbc, "a.txt", 1}});
    // Another port's prefix, and a shorter port whose text is a prefix of ours.
    EXPECT_FALSE(Apply(Answer(2, {{kHashAbc, "a.txt", 1}}, "wHttpShare8091"), items));
    EXPECT_FALSE(Apply(Answer(2, {{kHashAbc, "a.txt", 1}}, "wHttpShare809"), items));
    EXPECT_FALSE(Apply(Answer(2, {{kHashAbc, "a.txt", 1}}, "whttpshare8090"), items));
    std::list<UpdateItem> port80 = items;
    EXPECT_FALSE(ApplyPeerAnswer(reinterpret_cast<const unsigned char*>(good.data()), good.size(), kSender,
                                 "wHttpShare80", port80));
    EXPECT_TRUE(port80.front().peers.empty());
    // A query (our own broadcast comes back to us), and an unknown kind.
    EXPECT_FALSE(Apply(Answer(2, {{kHashAbc, "a.txt", 1}}, kPrefix, 1), items));
    EXPECT_FALSE(Apply(Answer(2, {{kHashAbc, "a.txt", 1}}, kPrefix, 3), items));
    // A length field beyond what arrived.
    std::string longer = good;
    longer.replace(16, 4, BigEndian(good.size() + 1, 4));
    EXPECT_FALSE(Apply(longer, items));
    longer.replace(16, 4, BigEndian(0xFFFFFFFFu, 4));
    EXPECT_FALSE(Apply(longer, items));
    // Fewer than four bytes after the header.
    for (size_t cut = 0; cut < 24; ++cut) {
        std::string shortened = good.substr(0, cut);
        if (cut >= 20)
            shortened.replace(16, 4, BigEndian(cut, 4));
        EXPECT_FALSE(Apply(shortened, items)) << cut;
    }
    ExpectUnchanged();
    // A length field below what arrived is accepted.
    std::string shorter = good;
    shorter.replace(16, 4, BigEndian(1, 4));
    EXPECT_TRUE(Apply(shorter, items));
    EXPECT_EQ(First().peers.size(), 1u);
}

TEST_F(PeerAnswer, TruncatedRecordStopsTheReadingAndChangesNothing)
{
    for (uint8_t version : {1, 2}) {
        std::string full = Answer(version, {{kHashAbc, "a.txt", 77}, {kHashAbc, "dir\\\xC3\xA9.bin", 88}});
        size_t firstEnd = 24 + (version >= 2 ? 21 : 0) + 6 + (version >= 2 ? 8 : 0);
        for (size_t cut = 24; cut <= full.size(); ++cut) {
            items.clear();
            SetUp();
            std::string datagram = full.substr(0, cut);
            datagram.replace(16, 4, BigEndian(cut, 4));
            EXPECT_TRUE(Apply(datagram, items));
            EXPECT_EQ(First().peers.size(), cut >= firstEnd ? 1u : 0u) << int(version) << " " << cut;
            EXPECT_EQ(Second().peers.size(), cut == full.size() ? 1u : 0u) << int(version) << " " << cut;
            EXPECT_EQ(Second().size, version >= 2 && cut == full.size() ? 88u : 20u) << int(version) << " " << cut;
            EXPECT_EQ(Second().hash, version >= 2 && cut == full.size() ? kHashAbcText : kOldHash);
        }
    }
}

TEST_F(PeerAnswer, CountLimitsTheRecordsRead)
{
    std::string answer = Answer(1, {{"", "a.txt", 0}, {"", "dir\\\xC3\xA9.bin", 0}});
    answer.replace(20, 4, BigEndian(1, 4));
    EXPECT_TRUE(Apply(answer, items));
    EXPECT_EQ(First().peers.size(), 1u);
    EXPECT_TRUE(Second().peers.empty());
    answer.replace(20, 4, BigEndian(0, 4));
    items.clear();
    SetUp();
    EXPECT_TRUE(Apply(answer, items));
    ExpectUnchanged();
    // A count far beyond the records present reads what is there and stops.
    answer.replace(20, 4, BigEndian(0xFFFFFFFFu, 4));
    EXPECT_TRUE(Apply(answer, items));
    EXPECT_EQ(Second().peers.size(), 1u);
}

TEST_F(PeerAnswer, HashOfAnotherLengthSkipsTheRecordAndLength255Stops)
{
    EXPECT_TRUE(Apply(Answer(2, {{std::string(19, '\x11'), "a.txt", 1}, {"", "a.txt", 2},
                                 {kHashAbc, "dir\\\xC3\xA9.bin", 3}}),
                      items));
    EXPECT_TRUE(First().peers.empty());
    EXPECT_EQ(First().hash, kOldHash);
    EXPECT_EQ(Second().hash, kHashAbcText);
    EXPECT_EQ(Second().size, 3u);
    items.clear();
    SetUp();
    EXPECT_TRUE(Apply(Answer(2, {{std::string(255, '\x11'), "a.txt", 1}, {kHashAbc, "a.txt", 2}}), items));
    ExpectUnchanged();
}

TEST_F(PeerAnswer, VersionZeroReadsNamesOnly)
{
    EXPECT_TRUE(Apply(Answer(0, {{"", "a.txt", 0}}), items));
    EXPECT_EQ(First().peers.size(), 1u);
    EXPECT_EQ(First().hash, kOldHash);
}
