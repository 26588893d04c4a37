// The datagrams of peer discovery: one header and one set of fields for queries and answers, and
// every read checked against the bytes that arrived.
#include "discovery/datagrams.h"
#include "discovery/datagram_fields.h"
#include "runtime/text.h"

#include <cstring>

namespace {

constexpr uint8_t kVersion = 2;
constexpr uint8_t kQuery = 1;
constexpr uint8_t kAnswer = 2;
constexpr size_t kHeaderBytes = 6;  // version, kind, length; after the prefix
constexpr size_t kHashBytes = 20;
// A counted field (a name, an answer's hash) holds at most this many bytes; 255 is never written.
constexpr size_t kMostFieldBytes = 254;
// Where a datagram is closed: a query after the record that takes it beyond this size, an
// answer before the record that would.
constexpr size_t kDatagramBytes = 1200;
constexpr size_t kFirstCapacity = 2048;

// The prefix, the version, the kind and a length field that Close fills in.
void Open(std::string& datagram, const std::string& prefix, uint8_t kind)
{
    datagram.clear();
    datagram.reserve(kFirstCapacity);
    datagram += prefix;
    datagram += static_cast<char>(kVersion);
    datagram += static_cast<char>(kind);
    PutBigEndian(datagram, 0, 4);
}

// Writes the datagram's whole size into its length field.
void Close(std::string& datagram, size_t prefixLength)
{
    std::string length;
    PutBigEndian(length, datagram.size(), 4);
    datagram.replace(prefixLength + 2, 4, length);
}

// Reads the prefix and the header fields; false when the prefix differs or a field is cut short.
bool ReadHeader(FieldReader& reader, const std::string& prefix, uint64_t& version, uint64_t& kind, uint64_t& length)
{
    const unsigned char* start;
    return reader.Bytes(prefix.size(), start) && memcmp(start, prefix.data(), prefix.size()) == 0 &&
           reader.BigEndian(1, version) && reader.BigEndian(1, kind) && reader.BigEndian(4, length);
}

// The i-th digit of a hash text as a number; missing digits and other characters count as 0.
unsigned HashDigit(const std::wstring& hash, size_t i)
{
    int value = i < hash.size() ? HexDigitValue(hash[i]) : -1;
    return value < 0 ? 0 : static_cast<unsigned>(value);
}

void AppendQueryRecord(std::string& datagram, const UpdateItem& item)
{
    datagram += '\1';
    std::string name = WideToUtf8(item.name);
    // A name too long for its field is left out altogether, length byte included.
    if (name.size() <= kMostFieldBytes) {
        datagram += static_cast<char>(name.size());
        datagram += name;
    }
    datagram += static_cast<char>(kHashBytes);
    for (size_t i = 0; i < kHashBytes; ++i)
        datagram += static_cast<char>(HashDigit(item.hash, 2 * i) << 4 | HashDigit(item.hash, 2 * i + 1));
    datagram += '\1';
    PutBigEndian(datagram, item.size, 8);
}

// A query ends with the byte 0, counted in its length.
void CloseQuery(std::string& datagram, size_t prefixLength)
{
    datagram += '\0';
    Close(datagram, prefixLength);
}

void OpenAnswer(std::string& datagram, const std::string& prefix)
{
    Open(datagram, prefix, kAnswer);
    PutBigEndian(datagram, 0, 4);  // record count, set when the datagram is closed
}

void CloseAnswer(std::string& datagram, size_t prefixLength, uint32_t records)
{
    Close(datagram, prefixLength);
    std::string count;
    PutBigEndian(count, records, 4);
    datagram.replace(prefixLength + kHeaderBytes, 4, count);
}

UpdateItem* FindItem(std::list<UpdateItem>& items, const std::wstring& name)
{
    for (UpdateItem& item : items) {
        if (item.name == name)
            return &item;
    }
    return nullptr;
}

}  // namespace

std::string PeerPrefix(uint16_t port)
{
    return FormatA("wHttpShare%u", static_cast<unsigned>(port));
}

std::vector<std::string> BuildPeerQueries(const std::list<UpdateItem>& items, uint16_t port)
{
    std::string prefix = PeerPrefix(port);
    std::vector<std::string> datagrams;
    std::string datagram;
    Open(datagram, prefix, kQuery);
    for (const UpdateItem& item : items) {
        AppendQueryRecord(datagram, item);
        if (datagram.size() > kDatagramBytes) {
            CloseQuery(datagram, prefix.size());
            datagrams.push_back(std::move(datagram));
            Open(datagram, prefix, kQuery);
        }
    }
    if (datagram.size() > prefix.size() + kHeaderBytes) {
        CloseQuery(datagram, prefix.size());
        datagrams.push_back(std::move(datagram));
    }
    return datagrams;
}

std::vector<PeerRecord> ReadPeerQuery(const unsigned char* bytes, size_t count, const std::string& prefix)
{
    std::vector<PeerRecord> records;
    FieldReader header(bytes, bytes + count);
    uint64_t version, kind, length;
    // Queries older than this version are not answered.
    if (!ReadHeader(header, prefix, version, kind, length) || version < kVersion || kind != kQuery ||
        length > count || length < prefix.size() + kHeaderBytes)
        return records;
    // Records are read only within the length field: bytes after it are not part of the datagram.
    FieldReader reader(bytes + prefix.size() + kHeaderBytes, bytes + length);
    while (records.size() < kMaxQueryRecords) {
        uint64_t marker, hashLength, sizeMarker, size;
        const unsigned char *name, *hash;
        size_t nameLength;
        if (!reader.BigEndian(1, marker) || marker != 1 || !reader.Counted(name, nameLength) ||
            !reader.BigEndian(1, hashLength) || hashLength != kHashBytes || !reader.Bytes(kHashBytes, hash) ||
            !reader.BigEndian(1, sizeMarker) || sizeMarker != 1 || !reader.BigEndian(8, size))
            break;
        PeerRecord record;
        record.name = Utf8ToWide(reinterpret_cast<const char*>(name), static_cast<ptrdiff_t>(nameLength));
        memcpy(record.hash.data(), hash, kHashBytes);
        record.size = size;
        records.push_back(std::move(record));
    }
    return records;
}

std::vector<std::string> BuildPeerAnswers(const std::vector<PeerRecord>& records, uint16_t port)
{
    std::string prefix = PeerPrefix(port);
    std::vector<std::string> datagrams;
    std::string datagram;
    uint32_t inDatagram = 0;
    OpenAnswer(datagram, prefix);
    for (const PeerRecord& record : records) {
        std::string name = WideToUtf8(record.name);
        if (name.size() > kMostFieldBytes)
            continue;
        std::string bytes;
        bytes += static_cast<char>(record.hash.size());
        bytes.append(reinterpret_cast<const char*>(record.hash.data()), record.hash.size());
        bytes += static_cast<char>(name.size());
        bytes += name;
        PutBigEndian(bytes, record.size, 8);
        if (inDatagram > 0 && datagram.size() + bytes.size() > kDatagramBytes) {
            CloseAnswer(datagram, prefix.size(), inDatagram);
            datagrams.push_back(std::move(datagram));
            OpenAnswer(datagram, prefix);
            inDatagram = 0;
        }
        datagram += bytes;
        ++inDatagram;
    }
    if (inDatagram > 0) {
        CloseAnswer(datagram, prefix.size(), inDatagram);
        datagrams.push_back(std::move(datagram));
    }
    return datagrams;
}

bool ApplyPeerAnswer(const unsigned char* bytes, size_t count, uint32_t sender, const std::string& prefix,
                     std::list<UpdateItem>& items)
{
    FieldReader reader(bytes, bytes + count);
    uint64_t version, kind, length, records;
    if (!ReadHeader(reader, prefix, version, kind, length) || length > count || kind != kAnswer ||
        !reader.BigEndian(4, records))
        return false;
    for (uint64_t i = 0; i < records; ++i) {
        const unsigned char* hash = nullptr;
        const unsigned char* name;
        size_t hashLength = 0, nameLength;
        uint64_t size = 0;
        // Answers before version 2 name the files only.
        if (version >= 2 && (!reader.Counted(hash, hashLength) || hashLength > kMostFieldBytes))
            break;
        if (!reader.Counted(name, nameLength))
            break;
        if (version >= 2 && !reader.BigEndian(8, size))
            break;
        UpdateItem* item = FindItem(items, Utf8ToWide(reinterpret_cast<const char*>(name), nameLength));
        // A hash of any other length cannot stand for the item's SHA-1: the record is skipped.
        if (!item || (version >= 2 && hashLength != kHashBytes))
            continue;
        // The hash and size of a signed release are the publisher's: a peer only carries bytes.
        if (version >= 2 && item->sha256.empty()) {
            item->hash = BytesToHex(hash, kHashBytes);
            item->size = size;
        }
        item->peers.insert(sender);
    }
    return true;
}
