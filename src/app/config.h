// UpdaterConfig: what the updater is told by its one argument, read once and not changed after.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

class JsonLine;
class wJsonObject;

struct UpdaterConfig {
    std::wstring argOrg;
    std::vector<std::wstring> domains;  // in the argument's order
    // Empty when there is nothing to fetch: no usable domains, or a "publicKey" that is unusable.
    std::wstring pathAndQuery;
    uint16_t httpSharePort = 0;
    // Signed mode: the publisher's Ed25519 key as given, and its bytes; empty in the default mode.
    std::wstring publicKey;
    uint8_t publicKeyBytes[32] = {};
    // The program's own folder with a trailing '\'; the base of every relative path.
    std::wstring programDirectory;
    // The launcher's pipe for progress events; empty when none is given.
    std::wstring progressPipe;

    bool Signed() const { return !publicKey.empty(); }
};

// The configuration read from the parsed argument and logged.
UpdaterConfig ReadConfig(const wJsonObject& argument, std::wstring programDirectory);
// The configuration as the start event shows it to a launcher.
JsonLine ConfigurationLine(const UpdaterConfig& config);
// The folder of the running program with a trailing '\'.
std::wstring ComputeProgramDirectory();
