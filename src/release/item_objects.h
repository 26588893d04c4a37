// The members by which a manifest of the objects format lets each file come as less than its
// plain bytes: its compressed object and patches from earlier versions of it, each an object of
// the server's site. Read from outside input: every value is checked before it is used.
#pragma once
#include "release/digest.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class wJsonObject;

// The manifest's "format" that gives its files the members "z" and "p".
constexpr uint32_t kObjectsFormat = 2;
// Sizes of that format may be any integer a JSON number holds exactly.
constexpr uint64_t kMaxObjectsSize = 1ull << 53;
// More patches than a publisher keeps earlier releases for is taken as a hostile list.
constexpr size_t kMaxPatches = 64;
// Longest URL path of an object.
constexpr size_t kMaxObjectPath = 1024;

// One object of the site: its URL path ("u") and its length in bytes ("s"); size 0 is none.
struct ItemObject {
    std::wstring path;
    uint64_t size = 0;
};

// A patch that turns the file whose SHA-1 is `base` (40 upper-case hexadecimal digits) into the
// listed file.
struct ItemPatch {
    std::wstring base;
    ItemObject object;
};

// The forms of one file beside its plain bytes; `listed` when the file came from a manifest of
// the objects format (it may then be of any size, and it may have neither form).
struct ItemObjects {
    bool listed = false;
    ItemObject compressed;
    std::vector<ItemPatch> patches;

    // The largest file hashed for the item: any size it may have when listed.
    uint64_t HashLimit() const { return listed ? kMaxObjectsSize : kMaxHashedSize; }
};

// True when the manifest's "format" is the number kObjectsFormat.
bool IsObjectsFormat(const wJsonObject& manifest);
// A size of the objects format: a number that is an integer from 0 to kMaxObjectsSize.
bool ReadObjectsSize(double value, uint64_t& size);
// The members of one file of an objects-format manifest: "h" of 40 hexadecimal digits, "s" by
// ReadObjectsSize, and "z" and "p" when present well formed (an object of the site each: a path
// of unreserved URL characters and "/" that starts with "/", and a size from 1 up; patches at
// most kMaxPatches, each with a distinct "h"). False for a file that breaks any of these.
bool ReadItemObjects(const wJsonObject& file, uint64_t& size, ItemObjects& objects);
