// Peer discovery: query datagrams broadcast to every local IPv4 network name the changed files,
// and every answer makes its sender a peer of the files it names.
#pragma once
#include "release/update_item.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

// "wHttpShare%u" with the port: the text that starts every datagram of the protocol.
std::string PeerPrefix(uint16_t port);
// The query datagrams for the items in list order; a datagram is closed as soon as a record
// takes it beyond 1200 bytes.
std::vector<std::string> BuildPeerQueries(const std::list<UpdateItem>& items, uint16_t port);
// Reads one received datagram of `count` bytes: for every record naming an item, the sender
// (IPv4, network byte order) becomes a peer of it, and an answer of version 2 or later replaces
// the item's expected hash and size, unless the item carries the SHA-256 of a signed release.
// Reads nothing beyond `count` bytes; false when the datagram is not an answer with this prefix.
bool ApplyPeerAnswer(const unsigned char* bytes, size_t count, uint32_t sender, const std::string& prefix,
                     std::list<UpdateItem>& items);
// Asks the local networks on `port` for the items: query bursts at about 0, 200 and 400 ms,
// answers taken until 500 ms or until every item has a peer. What the answers tell is left in
// the items: their peers, and from a version 2 answer the expected hash and size.
void StartPeerSharing(std::list<UpdateItem>& items, uint16_t port);
