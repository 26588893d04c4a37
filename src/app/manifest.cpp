// FetchManifest: one GET of the manifest from one domain; a parsed JSON object ends the search.
#include "app/manifest.h"
#include "app/config.h"
#include "http/request.h"
#include "http/status.h"
#include "json/value.h"
#include "runtime/logger.h"
#include "runtime/text.h"

bool FetchManifest(const std::wstring& pathAndQuery, const std::wstring& domain)
{
    std::wstring url = FormatW(L"http://%s%s", domain.c_str(), pathAndQuery.c_str());
    LogW(L"HTTP Getting... %s", url.c_str());
    HttpRequest request;
    request.Execute(url);
    LogW(L"HTTP Response Status (%u %s)", request.status, GetHttpStatusName(request.status));
    if (request.status != 200)
        return false;

    std::wstring body = request.responseBody
                            ? DecodeTextBody(request.responseBody, static_cast<size_t>(request.responseBodyLength))
                            : std::wstring();
    const wchar_t* cursor = body.c_str();
    wJsonObject* manifest = wJsonObject::Parse(cursor);
    if (!manifest) {
        LogW(L"Failed to parse JSON string. (2)\r\n%s", body.c_str());
        return false;
    }
    LogW(L"HTTP Response Content\r\n%s", manifest->Serialize(0, L"\r\n").c_str());
    manifest->Release();
    return true;
}
