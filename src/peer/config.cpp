// Reads ShareConfig: the updater's "domains" and "pathAndQuery", a required port, an optional root.
#include "peer/config.h"
#include "json/value.h"
#include "runtime/logger.h"
#include "runtime/text.h"

#include <windows.h>

namespace {

// The root as a full folder path ending in '\'; empty when it is not an existing folder.
std::wstring FullFolder(const std::wstring& root, const std::wstring& programDirectory)
{
    std::wstring path = root;
    for (wchar_t& c : path)
        if (c == L'/')
            c = L'\\';
    bool absolute = path.size() >= 2 && (path[1] == L':' || (path[0] == L'\\' && path[1] == L'\\'));
    if (!absolute)
        path = programDirectory + path;
    wchar_t full[MAX_PATH];
    DWORD length = GetFullPathNameW(path.c_str(), MAX_PATH, full, nullptr);
    if (length == 0 || length >= MAX_PATH)
        return {};
    path.assign(full, length);
    DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY))
        return {};
    if (path.back() != L'\\')
        path += L'\\';
    return path;
}

}  // namespace

bool ReadShareConfig(const wJsonObject& argument, const std::wstring& programDirectory, ShareConfig& config)
{
    std::wstring joined;
    if (const wJsonArray* domains = argument.GetArray(L"domains")) {
        for (uint32_t i = 0; i < domains->Count(); ++i) {
            std::wstring domain = domains->GetString(i);
            if (domain.empty())
                continue;
            joined += FormatW(L" %s", domain.c_str());
            config.domains.push_back(std::move(domain));
        }
    }
    config.pathAndQuery = argument.GetString(L"pathAndQuery");
    double port = 0;
    const wJsonValue* portValue = argument.Get(L"httpSharePort");
    if (portValue && portValue->type == wJsonType::number)
        port = static_cast<const wJsonNumber*>(portValue)->Value();
    std::wstring root = argument.GetString(L"root");
    LogW(L"domains:%s", joined.c_str());
    LogW(L"pathAndQuery: %s", config.pathAndQuery.c_str());
    LogW(L"httpSharePort: %s", portValue ? portValue->Serialize(0, L"").c_str() : L"");
    LogW(L"root: %s", root.c_str());

    if (config.domains.empty() || config.pathAndQuery.empty()) {
        LogA("The argument needs \"domains\" and \"pathAndQuery\".");
        return false;
    }
    if (!(port >= 1 && port <= 65535) || port != static_cast<double>(static_cast<int>(port))) {
        LogA("The argument needs \"httpSharePort\" from 1 to 65535.");
        return false;
    }
    config.port = static_cast<uint16_t>(port);
    config.root = FullFolder(root, programDirectory);
    if (config.root.empty()) {
        LogW(L"The root is not a folder: %s", root.empty() ? programDirectory.c_str() : root.c_str());
        return false;
    }
    return true;
}
