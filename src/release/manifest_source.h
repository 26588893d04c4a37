// The manifest as the updater and the share peer both fetch it: one GET per domain over the
// shuffled ring, the body parsed as a JSON object, and the list of files read from it.
#pragma once
#include "release/item_objects.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class wJsonObject;
struct RandomPick;

// One listed file: "n" with '/' turned into '\', "h" as written, "s" as an unsigned size, and
// "sha256" as written when it is a string (a signed release requires it); in a manifest of the
// objects format, also its compressed object and patches.
struct ManifestFile {
    std::wstring name;
    std::wstring hash;
    uint64_t size = 0;
    std::wstring sha256;
    ItemObjects objects;
};

// One GET of "http://" domain pathAndQuery, logged as "HTTP Getting... %s" and
// "HTTP Response Status (%u %s)"; on status 200 the body parsed by ParseManifestBody. The manifest,
// which the caller releases, or null.
wJsonObject* FetchManifestObject(const std::wstring& pathAndQuery, const std::wstring& domain, bool logContent);
// Decodes and parses a manifest body; logs the failure line, or the re-serialised content when
// logContent is set. The parsed object, which the caller releases, or null.
wJsonObject* ParseManifestBody(const void* bytes, size_t length, bool logContent = true);
// Offers each domain of the ring once, from its index on and wrapping around, until `visit`
// returns true; the ring's index names the domain being offered. Walks a copy of the domains, so
// `visit` may reuse the ring. True when a visit returned true.
bool WalkDomainRing(RandomPick& ring, const std::function<bool(const std::wstring& domain)>& visit);
// A manifest path with its '/' separators turned into '\'.
std::wstring ManifestPath(std::wstring path);
// The "files" entries that have "n" (string), "h" (string) and "s" (number), in manifest order;
// false when there is no "files" array. In a manifest of the objects format only the entries
// that ReadItemObjects also accepts.
bool ReadManifestFiles(const wJsonObject& manifest, std::vector<ManifestFile>& files);
