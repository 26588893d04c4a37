// DownloadFromSources and DownloadFromHost: the attempt sequence and the validity rule.
#include "release/download.h"
#include "http/request.h"
#include "http/status.h"
#include "runtime/logger.h"
#include "runtime/random_pick.h"
#include "runtime/folder.h"
#include "runtime/text.h"
#include "release/body_digest.h"
#include "release/download_progress.h"
#include "release/object_download.h"
#include "release/update_item.h"

#include <windows.h>
#include <algorithm>
#include <optional>

std::string PercentEncode(const std::string& bytes)
{
    return UrlEncode(bytes);
}

std::wstring DownloadUrl(const std::wstring& host, bool isServer, const std::wstring& urlPrefix,
                         const std::wstring& name)
{
    std::wstring url = isServer ? FormatW(L"http://%s%s", host.c_str(), urlPrefix.c_str())
                                : FormatW(L"http://%s", host.c_str());
    for (const std::wstring& component : SplitText(name, L"\\", false, false))
        url += L"/" + Utf8ToWide(PercentEncode(WideToUtf8(component)));
    return url;
}

void BoundSignedTransfer(HttpRequest& http, int64_t bodyLimit)
{
    http.redirectLimit = 10;
    http.bodyLimit = bodyLimit;
    http.minimumRate = 1024;
}

bool DownloadFromSources(RandomPick& hosts, std::vector<std::wstring>& servers, const DownloadRequest& request)
{
    size_t count = hosts.items.size();
    if (count == 0)
        return false;
    size_t i = hosts.index;
    for (size_t tried = 0; tried < count; ++tried) {
        hosts.index = static_cast<uint32_t>(i);
        if (DownloadFromHost(request, hosts.items[i], servers))
            return true;
        i = (i + 1) % count;
    }
    return false;
}

namespace {

// The size of what is on disk at path; false for a missing path or a folder.
bool FileSize(const std::wstring& path, uint64_t& size)
{
    WIN32_FILE_ATTRIBUTE_DATA attributes;
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &attributes) ||
        (attributes.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
        return false;
    size = (uint64_t(attributes.nFileSizeHigh) << 32) | attributes.nFileSizeLow;
    return true;
}

// Hands what is written to the digest and counts it for the progress: the bytes counted are
// those on disk, batch by batch, as the file grows, and only those of a 200 response (an error
// page or a redirect's body is not the file).
class CountedBody final : public WrittenBody {
public:
    CountedBody(WrittenBody& digest, const HttpRequest& http, DownloadProgress& progress)
        : digest(digest), http(http), progress(progress)
    {
    }
    void Restart() override
    {
        digest.Restart();
        progress.Restart();
    }
    void Take(const void* bytes, size_t count) override
    {
        digest.Take(bytes, count);
        if (http.Sink().head.status == 200)
            progress.Received(count);
    }

private:
    WrittenBody& digest;
    const HttpRequest& http;
    DownloadProgress& progress;
};

}  // namespace

bool DownloadFromHost(const DownloadRequest& request, const std::wstring& host, std::vector<std::wstring>& servers)
{
    auto server = std::find(servers.begin(), servers.end(), host);
    bool isServer = server != servers.end();
    if (isServer && request.item.objects.listed && DownloadSmallerForm(request, host)) {
        request.done = true;
        return true;
    }

    CreateDirectoryPath(GetDirectoryPart(request.destinationPath));
    std::wstring url = DownloadUrl(host, isServer, request.urlPrefix, request.item.name);
    LogW(L"HTTP Getting... %s", url.c_str());

    // The download is hashed as it is written, so a valid one is never read back.
    BodyDigest written(!request.item.sha256.empty(), request.item.objects.HashLimit());
    HttpRequest http;
    http.outputPath = request.destinationPath;
    http.writtenBody = &written;
    std::optional<CountedBody> counted;
    if (request.progress) {
        request.progress->Attempt(request.item, host, isServer);
        http.writtenBody = &counted.emplace(written, http, *request.progress);
    }
    if (request.connectTimeoutOverride != 0)
        http.connectTimeoutMs = request.connectTimeoutOverride;
    if (request.receiveTimeoutOverride != 0)
        http.receiveTimeoutMs = request.receiveTimeoutOverride;
    if (!request.item.sha256.empty())
        BoundSignedTransfer(http, static_cast<int64_t>(std::min<uint64_t>(request.item.size, INT64_MAX)));
    http.Execute(url);

    int64_t received = http.responseBodyLength;
    bool valid = false;
    if (http.status == 200) {
        auto length = http.responseHeaders.find(L"Content-Length");
        uint64_t onDisk = 0;
        if (length != http.responseHeaders.end() && ParseInteger(length->second, 10) == received &&
            FileSize(request.destinationPath, onDisk) && onDisk == static_cast<uint64_t>(received)) {
            // What was hashed covers the file only when every byte on disk went through it.
            request.digest = written.Digest();
            valid = written.Size() == onDisk && request.digest.hash == request.item.hash &&
                    request.digest.size == request.item.size &&
                    (request.item.sha256.empty() || written.MatchesSha256(request.item.sha256));
        }
    } else {
        DeleteFileW(request.destinationPath.c_str());
    }
    LogW(L"HTTP Response Status (%u %s) (%s %s)", http.status, GetHttpStatusName(http.status),
         valid ? L"Valid" : L"Invalid", FormatByteSize(static_cast<uint64_t>(received)).c_str());
    if (request.progress)
        request.progress->Ended(valid);
    if (valid && request.item.objects.listed)
        LogW(L"Downloaded %s whole from %s (%s fetched for %s)", request.item.name.c_str(), host.c_str(),
             FormatByteSize(static_cast<uint64_t>(received)).c_str(), FormatByteSize(request.item.size).c_str());
    if (valid) {
        request.done = true;
        return true;
    }
    // A server that failed leaves the caller's list, so the run does not ask it again; peers are
    // never in the list.
    if (isServer)
        servers.erase(server);
    return false;
}
