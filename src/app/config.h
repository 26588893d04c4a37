// UpdaterConfig: the process-wide configuration and work record, read from the one argument.
#pragma once
#include "runtime/random_pick.h"

#include <cstdint>
#include <list>
#include <set>
#include <string>
#include <vector>

class wJsonObject;

// One file that differs from the manifest.
struct UpdateItem {
    std::wstring name;       // "n" with '/' turned into '\'
    std::wstring hash;       // "h" as in the manifest (a peer's answer may replace it)
    std::wstring localHash;  // SHA-1 of the file on disk, or 40 underscores
    uint64_t size = 0;       // "s"
    uint64_t localSize = 0;
    std::set<uint32_t> peers;  // IPv4 addresses (network order) of peers offering the file
};

struct UpdaterConfig {
    std::wstring argOrg;
    std::vector<std::wstring> domains;
    RandomPick domainRing;
    uint16_t httpSharePort = 0;
    std::list<UpdateItem> updateItems;
};

extern UpdaterConfig* updaterConfig;
// The program's own folder with a trailing '\'; the base of every relative path.
extern std::wstring ProgramDirectory;

// Fills a new configuration from the parsed argument and logs it; pathAndQuery is set only
// when there are usable domains.
UpdaterConfig* ReadConfig(const wJsonObject& argument, std::wstring& pathAndQuery);
// The folder of the running program with a trailing '\'.
std::wstring ComputeProgramDirectory();
