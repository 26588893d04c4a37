// FetchManifest: the manifest of one domain (a parsed JSON object ends the search); then the update
// it asks for, in its order: the plan against the local files, the peers, the staging, the
// actions around the replacement, and the signed release recorded.
#include "app/manifest.h"
#include "app/actions.h"
#include "app/config.h"
#include "app/execute.h"
#include "app/progress.h"
#include "app/release_state.h"
#include "app/signed_manifest.h"
#include "app/stage.h"
#include "json/value.h"
#include "runtime/handles.h"
#include "runtime/logger.h"
#include "runtime/text.h"
#include "release/digest.h"
#include "release/manifest_source.h"
#include "discovery/search.h"
#include "release/signature.h"

#include <list>

bool FetchManifest(const UpdaterConfig& config, const std::wstring& domain, std::vector<std::wstring>& servers,
                   Progress& progress)
{
    uint64_t releaseVersion = 0;
    wJsonRoot<wJsonObject> manifest;
    if (config.Signed())
        manifest = FetchSignedManifest(config, domain, releaseVersion);
    else
        manifest.Reset(FetchManifestObject(config.pathAndQuery, domain, true));
    if (!manifest)
        return false;
    std::vector<ManifestFile> files;
    if (ReadManifestFiles(*manifest.Get(), files)) {
        ManifestActions actions = ReadManifestActions(*manifest.Get());
        // Everything the update needs of the document is read by now.
        manifest.Reset();
        ProcessManifest(config, std::move(files), actions, releaseVersion, servers, progress);
    }
    return true;
}

namespace {

// At most this many threads hash the manifest's files (a no-op over 5,000 files under Wine on
// 2 cores took 1.2 s with two, three or four, 1.3 s with six).
constexpr unsigned kHashThreads = 4;

// In signed mode a file is taken only with the SHA-256 it must have; false after one log line.
bool AcceptSha256(bool signedRelease, const ManifestFile& file)
{
    uint8_t digest[kSha256DigestSize];
    if (!signedRelease || ReadSha256Hex(file.sha256, digest))
        return true;
    LogW(L"Refused to update %s: no \"sha256\" of 64 hexadecimal digits.", file.name.c_str());
    return false;
}

// The listed files that differ from the copies on disk, in manifest order; `refused` is set when
// a file was refused. The files are hashed on several threads first, then compared in manifest
// order: under Wine each small file costs a few round trips to the single wineserver, which
// threads overlap.
std::list<UpdateItem> PlanUpdate(const UpdaterConfig& config, std::vector<ManifestFile> files, bool& refused)
{
    std::vector<UpdateItem> listed;
    std::vector<std::wstring> paths;
    for (ManifestFile& file : files) {
        if (!AcceptName(config.Signed(), L"update", file.name) || !AcceptSha256(config.Signed(), file)) {
            refused = true;
            continue;
        }
        UpdateItem item;
        item.name = std::move(file.name);
        item.hash = std::move(file.hash);
        item.size = file.size;
        item.objects = std::move(file.objects);
        if (config.Signed())
            item.sha256 = std::move(file.sha256);
        paths.push_back(config.programDirectory + item.name);
        listed.push_back(std::move(item));
    }
    files = std::vector<ManifestFile>();
    // All files of a manifest share its format, and so the largest size hashed.
    uint64_t limit = listed.empty() ? kMaxHashedSize : listed.front().objects.HashLimit();
    std::vector<FileDigest> digests = HashFiles(paths, kHashThreads, limit);
    paths = std::vector<std::wstring>();
    std::list<UpdateItem> items;
    for (size_t i = 0; i < listed.size(); ++i) {
        UpdateItem& item = listed[i];
        FileDigest& local = digests[i];
        if (EqualsNoCase(local.hash, item.hash) && local.size == item.size)
            continue;
        item.localHash = std::move(local.hash);
        item.localSize = local.size;
        items.push_back(std::move(item));
    }
    return items;
}

}  // namespace

std::wstring PlanLine(const UpdateItem& item)
{
    std::wstring localSize = item.localSize == ~0ull ? L"_" : FormatByteSize(item.localSize);
    return FormatW(L"(%s -> %s) (%s -> %s) (%s)", item.localHash.c_str(), item.hash.c_str(), localSize.c_str(),
                   FormatByteSize(item.size).c_str(), item.name.c_str());
}

void ProcessManifest(const UpdaterConfig& config, std::vector<ManifestFile> files, const ManifestActions& actions,
                     uint64_t releaseVersion, std::vector<std::wstring>& servers, Progress& progress)
{
    bool refused = false;
    std::list<UpdateItem> items = PlanUpdate(config, std::move(files), refused);
    if (items.empty()) {
        LogA("Nothing to update!");
        progress.Outcome(Progress::kCurrent);
        if (config.Signed() && !refused)
            WriteAppliedRelease(config.programDirectory, releaseVersion);
        return;
    }
    for (const UpdateItem& item : items)
        LogW(L"%s", PlanLine(item).c_str());
    progress.Plan(items);
    // Peers found now are tried before the servers; an answer may also replace an expected hash and size.
    if (config.httpSharePort != 0)
        StartPeerSharing(items, config.httpSharePort);
    std::wstring stagingDirectory = config.programDirectory + L"_update";
    if (!StageItems(stagingDirectory, actions.urlPrefix, items, config.httpSharePort, servers, progress))
        return;
    bool complete = ExecuteUpdateItems(config, stagingDirectory, actions, items, progress);
    if (complete)
        progress.Outcome(Progress::kUpdated);
    if (config.Signed() && complete && !refused)
        WriteAppliedRelease(config.programDirectory, releaseVersion);
}
