// UpdateItem: one file whose copy on disk differs from the manifest, as the downloads and the
// peer datagrams see it.
#pragma once
#include "release/item_objects.h"

#include <cstdint>
#include <set>
#include <string>

struct UpdateItem {
    std::wstring name;       // "n" with '/' turned into '\'
    std::wstring hash;       // "h" as in the manifest (a peer's answer may replace it, unless signed)
    std::wstring sha256;     // "sha256" of a signed release, empty otherwise; pins hash and size
    std::wstring localHash;  // SHA-1 of the file on disk, or 40 underscores
    uint64_t size = 0;       // "s"
    uint64_t localSize = 0;
    std::set<uint32_t> peers;  // IPv4 addresses (network order) of peers offering the file
    ItemObjects objects;       // its compressed object and patches, in a manifest of the objects format
};
