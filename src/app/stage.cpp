// StageItems: each file of the update fetched into the staging folder, peers first with short
// time-outs, then the servers.
#include "app/stage.h"
#include "app/progress.h"
#include "runtime/folder.h"
#include "runtime/logger.h"
#include "runtime/random_pick.h"
#include "runtime/text.h"
#include "release/download.h"
#include "release/sha256_file.h"

namespace {

// Peers first with short time-outs, then the servers; false when neither delivered.
bool Download(const std::wstring& stagingDirectory, const std::wstring& urlPrefix, UpdateItem& item,
              uint16_t httpSharePort, std::vector<std::wstring>& servers, Progress& progress)
{
    std::wstring staged = FormatW(L"%s\\%s", stagingDirectory.c_str(), item.name.c_str());
    FileDigest digest = HashFile(staged, item.objects.HashLimit());
    if (EqualsNoCase(digest.hash, item.hash) && digest.size == item.size &&
        (item.sha256.empty() || FileMatchesSha256(staged, item.sha256))) {
        LogW(L"Pass. %s", item.name.c_str());
        progress.Passed(item);
        return true;
    }

    std::vector<std::wstring> peers;
    std::wstring joined;
    for (uint32_t address : item.peers) {
        std::wstring text = FormatIPv4(address);
        peers.push_back(FormatW(L"%s:%u", text.c_str(), static_cast<unsigned>(httpSharePort)));
        joined += joined.empty() ? text : L" " + text;
    }
    if (!joined.empty())
        LogW(L"Peers for (%s) (%s)", item.name.c_str(), joined.c_str());

    bool done = false;
    uint32_t connectTimeout = 500, receiveTimeout = 200;
    DownloadRequest request{staged, urlPrefix, item, connectTimeout, receiveTimeout, digest, done, &progress,
                            GetDirectoryPart(stagingDirectory) + L"\\" + item.name};
    RandomPick hosts;
    hosts.Assign(peers);
    DownloadFromSources(hosts, servers, request);
    if (!done) {
        connectTimeout = 0;
        receiveTimeout = 0;
        hosts.Assign(servers);
        DownloadFromSources(hosts, servers, request);
    }
    return done;
}

}  // namespace

bool StageItems(const std::wstring& stagingDirectory, const std::wstring& urlPrefix, std::list<UpdateItem>& items,
                uint16_t httpSharePort, std::vector<std::wstring>& servers, Progress& progress)
{
    uint32_t created = CreateDirectoryPath(stagingDirectory);
    if (created == 0)
        LogA("Created _update directory.");
    else
        LogW(L"Failed to create _update directory. (0x%08X)", created);

    for (UpdateItem& item : items) {
        if (!Download(stagingDirectory, urlPrefix, item, httpSharePort, servers, progress)) {
            LogW(L"Failed to download. (%s)", item.name.c_str());
            return false;
        }
    }
    progress.Fetched();
    return true;
}
