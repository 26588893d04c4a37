// ManifestActions: what a manifest asks of an update besides its files, read from it once.
#pragma once
#include <string>
#include <vector>

class wJsonObject;

// Every list holds its member's non-empty strings in manifest order; a member that is absent, or
// of another kind, reads as empty.
struct ManifestActions {
    std::wstring urlPrefix;               // "urlPrefix": the files' path on the servers; "/" when none
    std::vector<std::wstring> stop;       // services stopped before the files are replaced
    std::vector<std::wstring> close;      // programs asked to close
    std::vector<std::wstring> pipe;       // named pipes signalled
    std::vector<std::wstring> kill;       // programs terminated
    std::vector<std::wstring> deletions;  // "delete": files and folders under the program folder
    std::vector<std::wstring> start;      // services started after the files are replaced
    std::wstring exe;                     // the program started at the end, under the program folder
    std::wstring arg;                     // its arguments
};

// The actions of a parsed manifest.
ManifestActions ReadManifestActions(const wJsonObject& manifest);
