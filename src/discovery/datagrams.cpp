// The datagrams of peer discovery: building queries and reading answers. Multi-byte numbers
// are big-endian; every read of an answer is checked against the bytes that arrived.
#include "discovery/datagrams.h"
#include "runtime/text.h"
#include "discovery/datagram_fields.h"

#include <cstring>

namespace {

constexpr uint8_t kVersion = 2;
constexpr uint8_t kQuery = 1;
constexpr uint8_t kAnswer = 2;
constexpr size_t kHashBytes = 20;
constexpr size_t kFlushAbove = 1200;
constexpr size_t kFirstCapacity = 2048;

// The i-th digit of a hash text as a number; missing digits and other characters count as 0.
unsigned HashDigit(const std::wstring& hash, size_t i)
{
    int value = i < hash.size() ? HexDigitValue(hash[i]) : -1;
    return value < 0 ? 0 : static_cast<unsigned>(value);
}

void StartDatagram(std::string& datagram, const std::string& prefix)
{
    datagram.clear();
    datagram.reserve(kFirstCapacity);
    datagram += prefix;
    datagram += static_cast<char>(kVersion);
    datagram += static_cast<char>(kQuery);
    PutBigEndian(datagram, 0xFFFFFFFFu, 4);
}

// Closes a datagram: the end byte, then its real length over the placeholder.
void FinishDatagram(std::string& datagram, size_t prefixLength)
{
    datagram += '\0';
    std::string length;
    PutBigEndian(length, datagram.size(), 4);
    datagram.replace(prefixLength + 2, 4, length);
}

void AppendRecord(std::string& datagram, const UpdateItem& item)
{
    datagram += '\1';
    std::string name = WideToUtf8(item.name);
    // A name of 255 bytes or more is left out altogether, length byte included.
    if (name.size() < 255) {
        datagram += static_cast<char>(name.size());
        datagram += name;
    }
    datagram += static_cast<char>(kHashBytes);
    for (size_t i = 0; i < kHashBytes; ++i)
        datagram += static_cast<char>(HashDigit(item.hash, 2 * i) << 4 | HashDigit(item.hash, 2 * i + 1));
    datagram += '\1';
    PutBigEndian(datagram, item.size, 8);
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
    size_t headerSize = prefix.size() + 6;
    std::vector<std::string> datagrams;
    std::string datagram;
    StartDatagram(datagram, prefix);
    for (const UpdateItem& item : items) {
        AppendRecord(datagram, item);
        if (datagram.size() > kFlushAbove) {
            FinishDatagram(datagram, prefix.size());
            datagrams.push_back(std::move(datagram));
            StartDatagram(datagram, prefix);
        }
    }
    if (datagram.size() > headerSize) {
        FinishDatagram(datagram, prefix.size());
        datagrams.push_back(std::move(datagram));
    }
    return datagrams;
}

bool ApplyPeerAnswer(const unsigned char* bytes, size_t count, uint32_t sender, const std::string& prefix,
                     std::list<UpdateItem>& items)
{
    FieldReader reader(bytes, bytes + count);
    const unsigned char* start;
    uint64_t version, kind, length, records;
    if (!reader.Bytes(prefix.size(), start) || memcmp(start, prefix.data(), prefix.size()) != 0 ||
        !reader.BigEndian(1, version) || !reader.BigEndian(1, kind) || !reader.BigEndian(4, length) ||
        length > count || kind != kAnswer || !reader.BigEndian(4, records))
        return false;
    for (uint64_t i = 0; i < records; ++i) {
        const unsigned char* hash = nullptr;
        const unsigned char* name;
        size_t hashLength = 0, nameLength;
        uint64_t size = 0;
        if (version >= 2 && (!reader.Counted(hash, hashLength) || hashLength > 254))
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
