// Update item execution: the manifest's actions around the replacement of the staged files.
#pragma once
#include "release/update_item.h"

#include <list>
#include <string>

class Progress;
struct ManifestActions;
struct UpdaterConfig;

// Runs the actions and moves every staged item into place, then removes the staging folder; true
// when no action of the manifest was refused. `progress` is told of every action as it begins.
bool ExecuteUpdateItems(const UpdaterConfig& config, const std::wstring& stagingDirectory,
                        const ManifestActions& actions, const std::list<UpdateItem>& items, Progress& progress);
// True when the release is not signed, or when the name stays inside the program folder;
// otherwise false after one log line: "Refused to <use> <name>: ...".
bool AcceptName(bool signedRelease, const wchar_t* use, const std::wstring& name);
