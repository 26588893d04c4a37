// Verified downloads: one file of the manifest fetched from a list of hosts (peers or update
// servers) into its place on disk, valid only when status, length, size and SHA-1 all agree, and
// the SHA-256 too for an item of a signed release.
#pragma once
#include "release/digest.h"

#include <cstdint>
#include <string>
#include <vector>

class DownloadProgress;
class HttpRequest;
struct RandomPick;
struct UpdateItem;

// The longest manifest or signature a signed release may have.
constexpr int64_t kMaxSignedText = int64_t(64) << 20;

// The bounds of signed mode on one request: at most 10 redirects, a body of at most `bodyLimit`
// bytes refused at the head when longer, and at least 1 KiB/s over every minute.
void BoundSignedTransfer(HttpRequest& http, int64_t bodyLimit);

struct DownloadRequest {
    std::wstring destinationPath;
    std::wstring urlPrefix;               // path prefix on update servers ("/" when none)
    UpdateItem& item;                     // name, expected hash and size
    const uint32_t& connectTimeoutOverride;  // 0 keeps the request's own time-out
    const uint32_t& receiveTimeoutOverride;
    FileDigest& digest;                   // refreshed after a download that passed the size checks
    bool& done;                           // set when a download was valid
    DownloadProgress* progress = nullptr;  // told of each attempt and its bytes, when given
    std::wstring installedPath;           // the file in place now: the base of a patch
};

// Tries the hosts from the pick's index on, wrapping around; true when one delivered a valid
// file. The index is left at the host that succeeded. `servers` are the update servers still in
// use (a host among them gets the URL prefix); every one that fails is taken out of it.
bool DownloadFromSources(RandomPick& hosts, std::vector<std::wstring>& servers, const DownloadRequest& request);
// One attempt from one host; a host of `servers` that fails is taken out of it, so that the
// caller does not ask it again. An item of a signed release is fetched within the signed bounds.
// From a server, an item of the objects format comes by patch or compressed object when it can,
// and as the plain file otherwise.
bool DownloadFromHost(const DownloadRequest& request, const std::wstring& host, std::vector<std::wstring>& servers);
// Every byte outside A-Z a-z 0-9 * - _ . ~ becomes "%XX".
std::string PercentEncode(const std::string& bytes);
// The URL of an item on a host: servers get the prefix, peers serve names from the root.
std::wstring DownloadUrl(const std::wstring& host, bool isServer, const std::wstring& urlPrefix,
                         const std::wstring& name);
