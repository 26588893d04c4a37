// Update item execution: downloads into the staging folder, then the manifest's actions.
#pragma once
#include "share/update_item.h"

#include <list>
#include <string>
#include <vector>

class Progress;
class wJsonObject;
struct UpdaterConfig;

// True when every file was downloaded and replaced and no action of the manifest was refused.
// `servers` are the update servers still in use; each one that fails a download is taken out.
// `progress` is told of every transfer and of every action as it begins.
bool ExecuteUpdateItems(const UpdaterConfig& config, const std::wstring& stagingDirectory, const wJsonObject& manifest,
                        std::list<UpdateItem>& items, std::vector<std::wstring>& servers, Progress& progress);
// True when the release is not signed, or when the name stays inside the program folder;
// otherwise false after one log line: "Refused to <use> <name>: ...".
bool AcceptName(bool signedRelease, const wchar_t* use, const std::wstring& name);
