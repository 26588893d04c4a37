// ShareConfig: what VeyShare reads from its one argument.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

class wJsonObject;

struct ShareConfig {
    std::vector<std::wstring> domains;
    std::wstring pathAndQuery;
    uint16_t port = 0;
    std::wstring root;  // full path with a trailing '\'
};

// Fills the configuration from the parsed argument and logs it; false, with the reason logged,
// when it cannot be used (no domain or path, a port outside 1-65535, a root that is no folder).
// A relative root is taken from the program's folder.
bool ReadShareConfig(const wJsonObject& argument, const std::wstring& programDirectory, ShareConfig& config);
