// Fuzz target of the share peer's query reader: the input is one received datagram, read under the
// prefix of port 8090 from a block of exactly its size, so a read past it is reported. What it
// accepts is answered, and every answer datagram must be read back by the updater's answer reader:
// each record written makes the sender a peer of its item, with the record's hash and size.
#include "discovery/peer_query.h"
#include "discovery/datagrams.h"
#include "runtime/text.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

namespace {

// Version, kind, length, record count; a record: hash length and hash, name length and the
// longest name written, size.
constexpr size_t kHeader = 1 + 1 + 4 + 4;
constexpr size_t kLargestRecord = 1 + 20 + 1 + 254 + 8;

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "peer query: %s\n", what);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string prefix = PeerPrefix(8090);
    constexpr uint32_t sender = 0x0100007F;
    auto exact = std::make_unique<unsigned char[]>(size);
    if (size)
        std::memcpy(exact.get(), data, size);
    std::vector<PeerRecord> records = ReadPeerQuery(exact.get(), size, prefix);
    if (records.size() > kMaxQueryRecords)
        Fail("more records than a query may give");

    std::vector<std::string> answers = BuildPeerAnswers(records, 8090);
    // The record each name is last written with, as the reader leaves it in the item.
    std::map<std::wstring, const PeerRecord*> written;
    for (const PeerRecord& record : records) {
        if (WideToUtf8(record.name).size() < 255)
            written[record.name] = &record;
    }
    if (written.empty() != answers.empty())
        Fail("answers without records, or records without answers");

    std::list<UpdateItem> items;
    for (const auto& entry : written) {
        items.emplace_back();
        items.back().name = entry.first;
    }
    for (const std::string& answer : answers) {
        if (answer.size() > 1200 && answer.size() > prefix.size() + kHeader + kLargestRecord)
            Fail("an answer datagram beyond its limit with more than one record");
        auto block = std::make_unique<unsigned char[]>(answer.size());
        std::memcpy(block.get(), answer.data(), answer.size());
        if (!ApplyPeerAnswer(block.get(), answer.size(), sender, prefix, items))
            Fail("an answer datagram the updater does not read");
    }
    for (const UpdateItem& item : items) {
        const PeerRecord& record = *written[item.name];
        if (item.peers.size() != 1 || *item.peers.begin() != sender ||
            item.hash != BytesToHex(record.hash.data(), record.hash.size()) || item.size != record.size)
            Fail("a written record that does not read back");
    }
    return 0;
}
