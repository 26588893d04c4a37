// The updater's search for peers: which machines of the local networks hold the files it lacks.
#pragma once
#include "release/update_item.h"

#include <cstdint>
#include <list>

// Asks the local networks on `port` for the items: query bursts at about 0, 200 and 400 ms,
// answers taken until 500 ms or until every item has a peer. What the answers tell is left in
// the items: their peers, and from a version 2 answer the expected hash and size.
void StartPeerSharing(std::list<UpdateItem>& items, uint16_t port);
