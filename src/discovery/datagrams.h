// The datagrams of peer discovery, both kinds from both sides: an updater broadcasts queries that
// name the files it lacks and reads the answers, a machine that shares files reads the queries and
// writes answers that make it a peer for the files it holds. Every datagram starts with the
// prefix, a version, a kind and its length; multi-byte numbers are big-endian.
#pragma once
#include "release/update_item.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
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

// "wHttpShare%u" with the port: the text that starts every datagram of the protocol.
std::string PeerPrefix(uint16_t port);

// The query datagrams for the items in list order; a datagram is closed as soon as a record
// takes it beyond 1200 bytes.
std::vector<std::string> BuildPeerQueries(const std::list<UpdateItem>& items, uint16_t port);
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
// Reads one received datagram of `count` bytes: for every record naming an item, the sender
// (IPv4, network byte order) becomes a peer of it, and an answer of version 2 or later replaces
// the item's expected hash and size, unless the item carries the SHA-256 of a signed release.
// Reads nothing beyond `count` bytes; false when the datagram is not an answer with this prefix.
bool ApplyPeerAnswer(const unsigned char* bytes, size_t count, uint32_t sender, const std::string& prefix,
                     std::list<UpdateItem>& items);
