// The manifest fetch over the domain ring and the reading of its file list.
#include "release/manifest_source.h"
#include "http/request.h"
#include "http/status.h"
#include "json/value.h"
#include "runtime/logger.h"
#include "runtime/random_pick.h"
#include "runtime/text.h"

namespace {

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

std::wstring ManifestPath(std::wstring path)
{
    for (auto& c : path)
        if (c == L'/')
            c = L'\\';
    return path;
}

wJsonObject* FetchManifestObject(const std::wstring& pathAndQuery, const std::wstring& domain, bool logContent)
{
    std::wstring url = FormatW(L"http://%s%s", domain.c_str(), pathAndQuery.c_str());
    LogW(L"HTTP Getting... %s", url.c_str());
    HttpRequest request;
    request.Execute(url);
    LogW(L"HTTP Response Status (%u %s)", request.status, GetHttpStatusName(request.status));
    if (request.status != 200)
        return nullptr;
    return ParseManifestBody(request.responseBody,
                             request.responseBody ? static_cast<size_t>(request.responseBodyLength) : 0, logContent);
}

wJsonObject* ParseManifestBody(const void* bytes, size_t length, bool logContent)
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
    if (logContent) {
        // The document is written once, behind the line's lead, and converted once into the entry.
        std::wstring content = L"HTTP Response Content\r\n";
        manifest->SerializeTo(content, 0, L"\r\n");
        LogWideText(content);
    }
    return manifest;
}

bool WalkDomainRing(RandomPick& ring, const std::function<bool(const std::wstring& domain)>& visit)
{
    std::vector<std::wstring> domains = ring.items;
    size_t count = domains.size();
    size_t i = ring.index;
    for (size_t tried = 0; tried < count; ++tried) {
        ring.index = static_cast<uint32_t>(i);
        if (visit(domains[i]))
            return true;
        i = (i + 1) % count;
    }
    return false;
}

bool ReadManifestFiles(const wJsonObject& manifest, std::vector<ManifestFile>& files)
{
    const wJsonArray* listed = manifest.GetArray(L"files");
    if (!listed)
        return false;
    bool objectsFormat = IsObjectsFormat(manifest);
    for (const wJsonValue* element : *listed) {
        if (element->type != wJsonType::object)
            continue;
        const auto& file = *static_cast<const wJsonObject*>(element);
        const wJsonValue* n = file.Get(L"n");
        const wJsonValue* h = file.Get(L"h");
        const wJsonValue* s = file.Get(L"s");
        if (!n || n->type != wJsonType::string || !h || h->type != wJsonType::string || !s ||
            s->type != wJsonType::number)
            continue;
        ManifestFile entry;
        if (objectsFormat) {
            if (!ReadItemObjects(file, entry.size, entry.objects))
                continue;
        } else {
            entry.size = SizeFromNumber(static_cast<const wJsonNumber*>(s)->Value());
        }
        entry.name = ManifestPath(file.GetString(L"n"));
        entry.hash = file.GetString(L"h");
        entry.sha256 = file.GetString(L"sha256");
        files.push_back(std::move(entry));
    }
    return true;
}
