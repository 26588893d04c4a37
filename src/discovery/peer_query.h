// The sharing side of peer discovery: reading the query datagrams that updaters broadcast, and
// writing the answer datagrams that make this machine their peer for the files it holds.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// One file as a query asks for it or an answer offers it.
struct PeerRecord {
    std::wstring name;                  // decoded from the UTF-8 bytes on the wire
    std::array<unsigned char, 20> hash{};  // SHA-1
    uint64_t size = 0;
};

// At most this many records are taken from one query; the rest of it is ignored.
constexpr size_t kMaxQueryRecords = 256;

// Reads one received query datagram of `count` bytes that should start with `prefix`. Nothing
// when the prefix differs, the version is below 2, the kind is not a query, or the length field
// is shorter than the header or longer than what arrived. Otherwise the records up to the first
// one that does not read whole within the length field (the end byte 0, a marker other than 1,
// a hash length other than 20, a field cut short), at most kMaxQueryRecords. Reads nothing
// beyond `count` bytes.
std::vector<PeerRecord> ReadPeerQuery(const unsigned char* bytes, size_t count, const std::string& prefix);
// The answer datagrams (version 2, kind 2) for the records in order, each closed before the next
// record would take it beyond 1200 bytes; a record is never split. A record whose UTF-8 name
// takes 255 bytes or more cannot be written and is left out. No records, no datagrams.
std::vector<std::string> BuildPeerAnswers(const std::vector<PeerRecord>& records, uint16_t port);
