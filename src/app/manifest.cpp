// FetchManifest: the manifest of one domain (a parsed JSON object ends the search), compared with
// the local files.
#include "app/manifest.h"
#include "app/config.h"
#include "app/execute.h"
#include "app/release_state.h"
#include "app/signed_manifest.h"
#include "json/value.h"
#include "runtime/logger.h"
#include "runtime/text.h"
#include "release/digest.h"
#include "release/item_objects.h"
#include "release/manifest_source.h"
#include "discovery/datagrams.h"
#include "release/signature.h"

bool FetchManifest(const std::wstring& pathAndQuery, const std::wstring& domain)
{
    wJsonObject* manifest = updaterConfig->Signed() ? FetchSignedManifest(pathAndQuery, domain)
                                                    : FetchManifestObject(pathAndQuery, domain, true);
    if (!manifest)
        return false;
    bool stop = ProcessManifest(*manifest);
    manifest->Release();
    return stop;
}

namespace {

// At most this many threads hash the manifest's files (a no-op over 5,000 files under Wine on
// 2 cores took 1.2 s with two, three or four, 1.3 s with six).
constexpr unsigned kHashThreads = 4;

// In signed mode a file is taken only with the SHA-256 it must have; false after one log line.
bool AcceptSha256(ManifestFile& file)
{
    uint8_t digest[kSha256DigestSize];
    if (!updaterConfig->Signed() || ReadSha256Hex(file.sha256, digest))
        return true;
    LogW(L"Refused to update %s: no \"sha256\" of 64 hexadecimal digits.", file.name.c_str());
    return false;
}

}  // namespace

std::wstring PlanLine(const UpdateItem& item)
{
    std::wstring localSize = item.localSize == ~0ull ? L"_" : FormatByteSize(item.localSize);
    return FormatW(L"(%s -> %s) (%s -> %s) (%s)", item.localHash.c_str(), item.hash.c_str(), localSize.c_str(),
                   FormatByteSize(item.size).c_str(), item.name.c_str());
}

bool ProcessManifest(const wJsonObject& manifest)
{
    std::vector<ManifestFile> files;
    if (!ReadManifestFiles(manifest, files))
        return true;
    UpdaterConfig& config = *updaterConfig;
    // The files are hashed on several threads first, then compared in manifest order: under Wine
    // each small file costs a few round trips to the single wineserver, which threads overlap.
    std::vector<UpdateItem> listed;
    std::vector<std::wstring> paths;
    bool refused = false;
    for (ManifestFile& file : files) {
        if (!AcceptName(L"update", file.name) || !AcceptSha256(file)) {
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
        paths.push_back(ProgramDirectory + item.name);
        listed.push_back(std::move(item));
    }
    files = std::vector<ManifestFile>();
    std::vector<FileDigest> digests =
        HashFiles(paths, kHashThreads, IsObjectsFormat(manifest) ? kMaxObjectsSize : kMaxHashedSize);
    paths = std::vector<std::wstring>();
    for (size_t i = 0; i < listed.size(); ++i) {
        UpdateItem& item = listed[i];
        FileDigest& local = digests[i];
        if (EqualsNoCase(local.hash, item.hash) && local.size == item.size)
            continue;
        item.localHash = std::move(local.hash);
        item.localSize = local.size;
        config.updateItems.push_back(std::move(item));
    }
    if (config.updateItems.empty()) {
        LogA("Nothing to update!");
        if (config.Signed() && !refused)
            WriteAppliedRelease(config.releaseVersion);
        return true;
    }
    for (const UpdateItem& item : config.updateItems)
        LogW(L"%s", PlanLine(item).c_str());
    // Peers found now are tried before the servers; an answer may also replace an expected hash and size.
    if (config.httpSharePort != 0)
        StartPeerSharing(config.updateItems, config.httpSharePort);
    bool complete = ExecuteUpdateItems(ProgramDirectory + L"_update", manifest);
    if (config.Signed() && complete && !refused)
        WriteAppliedRelease(config.releaseVersion);
    return true;
}
