// UpdaterConfig: the process-wide configuration and work record, read from the one argument.
#pragma once
#include "runtime/random_pick.h"
#include "release/update_item.h"

#include <cstdint>
#include <list>
#include <string>
#include <vector>

class wJsonObject;

struct UpdaterConfig {
    std::wstring argOrg;
    std::vector<std::wstring> domains;
    RandomPick domainRing;
    uint16_t httpSharePort = 0;
    std::list<UpdateItem> updateItems;
    // Signed mode: the publisher's Ed25519 key as given, and its bytes; empty in the default mode.
    std::wstring publicKey;
    uint8_t publicKeyBytes[32] = {};
    // The "version" of the signed manifest being applied.
    uint64_t releaseVersion = 0;

    bool Signed() const { return !publicKey.empty(); }
};

extern UpdaterConfig* updaterConfig;
// The program's own folder with a trailing '\'; the base of every relative path.
extern std::wstring ProgramDirectory;

// Fills a new configuration from the parsed argument and logs it; pathAndQuery is set only
// when there are usable domains, and is cleared when a "publicKey" is given but unusable.
UpdaterConfig* ReadConfig(const wJsonObject& argument, std::wstring& pathAndQuery);
// The folder of the running program with a trailing '\'.
std::wstring ComputeProgramDirectory();
