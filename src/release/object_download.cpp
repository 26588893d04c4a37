// DownloadSmallerForm: one object per GET, its body pushed through the decoder into the staging
// file, with the old file mapped as the patch's base (a patch copies from it in many short
// pieces, each a read call if it were read); the log says what came and how much was fetched.
#include "release/object_download.h"
#include "http/request.h"
#include "http/status.h"
#include "runtime/folder.h"
#include "runtime/logger.h"
#include "runtime/text.h"
#include "release/body_digest.h"
#include "release/decoded_file.h"
#include "release/download.h"
#include "release/download_progress.h"
#include "release/update_item.h"
#include "zstd/decoder.h"
#include "zstd/file_io.h"

#include <algorithm>
#include <cstdint>

namespace {

// Hands the body to the decoder as it arrives and counts it as fetched.
class DecodingBody final : public BodyStream {
public:
    DecodingBody(ZstdDecoder& decoder, DownloadProgress* progress) : decoder(decoder), progress(progress) {}

    bool Take(const void* bytes, size_t count) override
    {
        fetched += count;
        if (progress)
            progress->Received(count);
        error = decoder.Push(bytes, count);
        return error == ZstdError::None;
    }

    uint64_t fetched = 0;
    ZstdError error = ZstdError::None;

private:
    ZstdDecoder& decoder;
    DownloadProgress* progress;
};

// One object fetched and decoded into the staging file; empty when the staging file now holds the
// item exactly, otherwise why not. `basePath` is the patch's base, empty for a compressed object.
std::wstring DecodeObject(const DownloadRequest& request, const std::wstring& host, const ItemObject& object,
                          const std::wstring& basePath, uint64_t& fetched)
{
    const UpdateItem& item = request.item;
    std::wstring url = FormatW(L"http://%s%s", host.c_str(), object.path.c_str());
    LogW(L"HTTP Getting... %s", url.c_str());

    MappedHistory base;
    if (!basePath.empty()) {
        if (uint32_t error = base.Open(basePath))
            return FormatW(L"the installed file cannot be read (0x%08X)", error);
    }
    CreateDirectoryPath(GetDirectoryPart(request.destinationPath));
    BodyDigest digest(!item.sha256.empty(), item.objects.HashLimit());
    StagingOutput output(digest);
    if (uint32_t error = output.Create(request.destinationPath))
        return FormatW(L"the staging file cannot be created (0x%08X)", error);

    ZstdLimits limits;
    limits.maxContent = item.size;
    ZstdDecoder decoder(limits, output, basePath.empty() ? nullptr : &base, base.Size());
    DecodingBody body(decoder, request.progress);
    HttpRequest http;
    http.bodyStream = &body;
    if (!item.sha256.empty())
        BoundSignedTransfer(http, static_cast<int64_t>(std::min<uint64_t>(object.size, INT64_MAX)));
    http.Execute(url);
    fetched = body.fetched;
    LogW(L"HTTP Response Status (%u %s) (%s)", http.status, GetHttpStatusName(http.status),
         FormatByteSize(fetched).c_str());

    if (body.error != ZstdError::None)
        return Utf8ToWide(ZstdErrorText(body.error));
    if (http.status != 200)
        return FormatW(L"status %u", http.status);
    auto length = http.responseHeaders.find(L"Content-Length");
    if (length == http.responseHeaders.end() || ParseInteger(length->second, 10) != http.responseBodyLength)
        return L"no length or a length not received";
    if (fetched != object.size)
        return FormatW(L"%I64u bytes where the manifest lists %I64u", fetched, object.size);
    ZstdError ended = decoder.Finish();
    if (ended != ZstdError::None)
        return Utf8ToWide(ZstdErrorText(ended));
    request.digest = digest.Digest();
    if (request.digest.size != item.size)
        return FormatW(L"decoded to %I64u bytes instead of %I64u", request.digest.size, item.size);
    if (request.digest.hash != item.hash)
        return L"decoded to another SHA-1";
    if (!item.sha256.empty() && !digest.MatchesSha256(item.sha256))
        return L"decoded to another SHA-256";
    return std::wstring();
}

// One form tried; true when it delivered the item. `done` and `kind` name the form in the log.
bool TryForm(const DownloadRequest& request, const std::wstring& host, const ItemObject& object,
             const std::wstring& basePath, const wchar_t* done, const wchar_t* kind)
{
    if (request.progress)
        request.progress->Attempt(request.item, host, true);
    uint64_t fetched = 0;
    std::wstring failure = DecodeObject(request, host, object, basePath, fetched);
    if (request.progress)
        request.progress->Ended(failure.empty());
    if (!failure.empty()) {
        LogW(L"Failed to use the %s of %s from %s: %s.", kind, request.item.name.c_str(), host.c_str(),
             failure.c_str());
        return false;
    }
    LogW(L"%s %s from %s (%s fetched for %s)", done, request.item.name.c_str(), host.c_str(),
         FormatByteSize(fetched).c_str(), FormatByteSize(request.item.size).c_str());
    return true;
}

}  // namespace

bool DownloadSmallerForm(const DownloadRequest& request, const std::wstring& host)
{
    const UpdateItem& item = request.item;
    for (const ItemPatch& patch : item.objects.patches) {
        if (EqualsNoCase(patch.base, item.localHash)) {
            if (TryForm(request, host, patch.object, request.installedPath, L"Patched", L"patch"))
                return true;
            break;
        }
    }
    return item.objects.compressed.size != 0 &&
           TryForm(request, host, item.objects.compressed, std::wstring(), L"Decompressed", L"compressed object");
}
