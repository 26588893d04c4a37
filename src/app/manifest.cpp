// FetchManifest: one GET of the manifest from one domain; a parsed JSON object ends the search.
#include "app/manifest.h"
#include "app/config.h"
#include "app/execute.h"
#include "http/request.h"
#include "http/status.h"
#include "json/value.h"
#include "runtime/logger.h"
#include "runtime/text.h"
#include "share/digest.h"
#include "share/peers.h"

bool FetchManifest(const std::wstring& pathAndQuery, const std::wstring& domain)
{
    std::wstring url = FormatW(L"http://%s%s", domain.c_str(), pathAndQuery.c_str());
    LogW(L"HTTP Getting... %s", url.c_str());
    HttpRequest request;
    request.Execute(url);
    LogW(L"HTTP Response Status (%u %s)", request.status, GetHttpStatusName(request.status));
    if (request.status != 200)
        return false;

    wJsonObject* manifest =
        ParseManifestBody(request.responseBody,
                          request.responseBody ? static_cast<size_t>(request.responseBodyLength) : 0);
    if (!manifest)
        return false;
    bool stop = ProcessManifest(*manifest);
    manifest->Release();
    return stop;
}

wJsonObject* ParseManifestBody(const void* bytes, size_t length)
{
    wJsonObject* manifest;
    {
        // The decoded text is needed only for the failure line: it is dropped before the
        // content is logged.
        std::wstring body = DecodeTextBody(bytes, length);
        const wchar_t* cursor = body.c_str();
        manifest = wJsonObject::Parse(cursor);
        if (!manifest) {
            LogW(L"Failed to parse JSON string. (2)\r\n%s", body.c_str());
            return nullptr;
        }
    }
    // The document is written once, behind the line's lead, and converted once into the entry.
    std::wstring content = L"HTTP Response Content\r\n";
    manifest->SerializeTo(content, 0, L"\r\n");
    LogWideText(content);
    return manifest;
}

namespace {

// Threads that hash the manifest's files at once (measured over 5,000 files under Wine on 2 cores:
// 1.64 s with one, 1.27 s with two, 0.98 s with four, 1.05 s with eight).
constexpr unsigned kHashThreads = 4;

// "s" as an unsigned 64-bit size: values from 2^63 up convert as unsigned; negative values, NaN
// and values beyond 2^64 convert to the integer the processor gives them.
uint64_t SizeFromNumber(double value)
{
    if (value >= 9223372036854775808.0 && value < 18446744073709551616.0)
        return static_cast<uint64_t>(value);
    if (value > -9223372036854775808.0 && value < 9223372036854775808.0)
        return static_cast<uint64_t>(static_cast<int64_t>(value));
    return 0x8000000000000000ull;
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
    const wJsonArray* files = manifest.GetArray(L"files");
    if (!files)
        return true;
    UpdaterConfig& config = *updaterConfig;
    // The files are hashed on several threads first, then compared in manifest order: under Wine
    // each small file costs a few round trips to the single wineserver, which threads overlap.
    std::vector<UpdateItem> listed;
    std::vector<std::wstring> paths;
    for (const wJsonValue* element : *files) {
        if (element->type != wJsonType::object)
            continue;
        const auto& file = *static_cast<const wJsonObject*>(element);
        const wJsonValue* n = file.Get(L"n");
        const wJsonValue* h = file.Get(L"h");
        const wJsonValue* s = file.Get(L"s");
        if (!n || n->type != wJsonType::string || !h || h->type != wJsonType::string || !s ||
            s->type != wJsonType::number)
            continue;
        UpdateItem item;
        item.name = ManifestPath(file.GetString(L"n"));
        item.hash = file.GetString(L"h");
        item.size = SizeFromNumber(static_cast<const wJsonNumber*>(s)->Value());
        paths.push_back(ProgramDirectory + item.name);
        listed.push_back(std::move(item));
    }
    std::vector<FileDigest> digests = HashFiles(paths, kHashThreads);
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
        return true;
    }
    for (const UpdateItem& item : config.updateItems)
        LogW(L"%s", PlanLine(item).c_str());
    // Peers found now are tried before the servers; an answer may also replace an expected hash and size.
    if (config.httpSharePort != 0)
        StartPeerSharing(config.updateItems, config.httpSharePort);
    return ExecuteUpdateItems(ProgramDirectory + L"_update", manifest);
}
