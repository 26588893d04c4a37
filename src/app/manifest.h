// The manifest: fetched from one domain, parsed, compared with the local files.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

class Progress;
struct ManifestActions;
struct ManifestFile;
struct UpdaterConfig;
struct UpdateItem;

// The manifest of one domain fetched and, when it came, processed; true when it came and the run
// sequence is to stop trying further domains. `servers` are the update servers still in use.
bool FetchManifest(const UpdaterConfig& config, const std::wstring& domain, std::vector<std::wstring>& servers,
                   Progress& progress);
// "(local hash -> hash) (local size -> size) (name)"; a local size with all bits set shows as "_".
std::wstring PlanLine(const UpdateItem& item);
// The update from a manifest's files and actions: the files that differ from the copies on disk
// are planned, their peers found, fetched into the staging folder and moved into place amid the
// actions. A signed release (`releaseVersion`) that was applied whole is recorded as the
// installation's release. `progress` is told the plan, the transfers, the steps and the outcome.
void ProcessManifest(const UpdaterConfig& config, std::vector<ManifestFile> files, const ManifestActions& actions,
                     uint64_t releaseVersion, std::vector<std::wstring>& servers, Progress& progress);
