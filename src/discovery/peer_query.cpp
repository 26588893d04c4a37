// Query datagrams read and answer datagrams written by a machine that shares files: the same
// prefix, header and record fields that the updater's discovery writes and reads.
#include "discovery/peer_query.h"
#include "discovery/datagram_fields.h"
#include "discovery/datagrams.h"
#include "runtime/text.h"

#include <cstring>

namespace {

constexpr uint8_t kQuery = 1;
constexpr uint8_t kAnswer = 2;
constexpr uint8_t kAnswerVersion = 2;
constexpr size_t kHeaderBytes = 6;  // version, kind, length
constexpr size_t kAnswerLimit = 1200;

}  // namespace

std::vector<PeerRecord> ReadPeerQuery(const unsigned char* bytes, size_t count, const std::string& prefix)
{
    std::vector<PeerRecord> records;
    FieldReader header(bytes, bytes + count);
    const unsigned char* start;
    uint64_t version, kind, length;
    if (!header.Bytes(prefix.size(), start) || memcmp(start, prefix.data(), prefix.size()) != 0 ||
        !header.BigEndian(1, version) || !header.BigEndian(1, kind) || !header.BigEndian(4, length) ||
        version < 2 || kind != kQuery || length > count || length < prefix.size() + kHeaderBytes)
        return records;
    // Records are read only within the length field: bytes after it are not part of the datagram.
    FieldReader reader(bytes + prefix.size() + kHeaderBytes, bytes + length);
    while (records.size() < kMaxQueryRecords) {
        uint64_t marker, hashLength, sizeMarker, size;
        const unsigned char *name, *hash;
        size_t nameLength;
        if (!reader.BigEndian(1, marker) || marker != 1 || !reader.Counted(name, nameLength) ||
            !reader.BigEndian(1, hashLength) || hashLength != 20 || !reader.Bytes(20, hash) ||
            !reader.BigEndian(1, sizeMarker) || sizeMarker != 1 || !reader.BigEndian(8, size))
            break;
        PeerRecord record;
        record.name = Utf8ToWide(reinterpret_cast<const char*>(name), static_cast<ptrdiff_t>(nameLength));
        memcpy(record.hash.data(), hash, 20);
        record.size = size;
        records.push_back(std::move(record));
    }
    return records;
}

namespace {

void StartAnswer(std::string& datagram, const std::string& prefix)
{
    datagram = prefix;
    datagram += static_cast<char>(kAnswerVersion);
    datagram += static_cast<char>(kAnswer);
    PutBigEndian(datagram, 0, 4);  // length, set when the datagram is closed
    PutBigEndian(datagram, 0, 4);  // record count, likewise
}

void FinishAnswer(std::string& datagram, size_t prefixLength, uint32_t records)
{
    std::string fields;
    PutBigEndian(fields, datagram.size(), 4);
    PutBigEndian(fields, records, 4);
    datagram.replace(prefixLength + 2, 8, fields);
}

}  // namespace

std::vector<std::string> BuildPeerAnswers(const std::vector<PeerRecord>& records, uint16_t port)
{
    std::string prefix = PeerPrefix(port);
    std::vector<std::string> datagrams;
    std::string datagram;
    uint32_t inDatagram = 0;
    StartAnswer(datagram, prefix);
    for (const PeerRecord& record : records) {
        std::string name = WideToUtf8(record.name);
        if (name.size() >= 255)
            continue;
        std::string bytes;
        bytes += static_cast<char>(record.hash.size());
        bytes.append(reinterpret_cast<const char*>(record.hash.data()), record.hash.size());
        bytes += static_cast<char>(name.size());
        bytes += name;
        PutBigEndian(bytes, record.size, 8);
        if (inDatagram > 0 && datagram.size() + bytes.size() > kAnswerLimit) {
            FinishAnswer(datagram, prefix.size(), inDatagram);
            datagrams.push_back(std::move(datagram));
            StartAnswer(datagram, prefix);
            inDatagram = 0;
        }
        datagram += bytes;
        ++inDatagram;
    }
    if (inDatagram > 0) {
        FinishAnswer(datagram, prefix.size(), inDatagram);
        datagrams.push_back(std::move(datagram));
    }
    return datagrams;
}
