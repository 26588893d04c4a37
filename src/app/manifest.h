// The manifest: fetched from one domain, parsed, compared with the local files.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

class Progress;
class wJsonObject;
struct UpdaterConfig;
struct UpdateItem;

// The manifest of one domain fetched and, when it came, processed; true when it came and the run
// sequence is to stop trying further domains. `servers` are the update servers still in use.
bool FetchManifest(const UpdaterConfig& config, const std::wstring& domain, std::vector<std::wstring>& servers,
                   Progress& progress);
// "(local hash -> hash) (local size -> size) (name)"; a local size with all bits set shows as "_".
std::wstring PlanLine(const UpdateItem& item);
// Records the files that differ from the manifest and runs the update. A signed release
// (`releaseVersion`) that was applied whole is recorded as the installation's release.
void ProcessManifest(const UpdaterConfig& config, const wJsonObject& manifest, uint64_t releaseVersion,
                     std::vector<std::wstring>& servers, Progress& progress);
