// FetchSignedManifest: two GETs from one server, the manifest and its ".sig", the Ed25519 check
// over the exact body bytes, then the release's expiry and version.
#include "app/signed_manifest.h"
#include "app/config.h"
#include "app/release_state.h"
#include "http/request.h"
#include "http/status.h"
#include "json/value.h"
#include "runtime/logger.h"
#include "runtime/text.h"
#include "release/download.h"
#include "release/manifest_source.h"
#include "release/release_terms.h"
#include "release/signature.h"

#include <windows.h>

namespace {

// One GET logged as the manifest fetch logs it; true on status 200.
bool Get(HttpRequest& request, const std::wstring& domain, const std::wstring& path)
{
    std::wstring url = FormatW(L"http://%s%s", domain.c_str(), path.c_str());
    LogW(L"HTTP Getting... %s", url.c_str());
    BoundSignedTransfer(request, kMaxSignedText);
    request.Execute(url);
    LogW(L"HTTP Response Status (%u %s)", request.status, GetHttpStatusName(request.status));
    return request.status == 200;
}

int64_t SecondsSince1970()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    uint64_t ticks = (uint64_t(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return static_cast<int64_t>(ticks / 10000000) - 11644473600ll;
}

// The signed manifest's terms; one log line and false when one fails.
bool AcceptTerms(const wJsonObject& manifest, const std::wstring& domain, uint64_t& version)
{
    const wJsonValue* number = manifest.Get(L"version");
    if (!number || number->type != wJsonType::number ||
        !ReadReleaseVersion(static_cast<const wJsonNumber*>(number)->Value(), version)) {
        LogW(L"Refused the manifest of %s: no \"version\" that is a positive integer.", domain.c_str());
        return false;
    }
    std::wstring expires = manifest.GetString(L"expires");
    int64_t expiry = 0;
    if (!ReadExpiryTime(expires, expiry)) {
        LogW(L"Refused the manifest of %s: no \"expires\" of the form YYYY-MM-DDTHH:MM:SSZ.", domain.c_str());
        return false;
    }
    if (expiry <= SecondsSince1970()) {
        LogW(L"Refused the manifest of %s: it expired at %s.", domain.c_str(), expires.c_str());
        return false;
    }
    uint64_t applied = ReadAppliedRelease();
    if (version < applied) {
        LogW(L"Refused the manifest of %s: its version %I64u is older than version %I64u, applied here.",
             domain.c_str(), static_cast<unsigned long long>(version), static_cast<unsigned long long>(applied));
        return false;
    }
    return true;
}

}  // namespace

wJsonObject* FetchSignedManifest(const std::wstring& pathAndQuery, const std::wstring& domain)
{
    UpdaterConfig& config = *updaterConfig;
    HttpRequest manifestRequest;
    if (!Get(manifestRequest, domain, pathAndQuery))
        return nullptr;
    auto* body = static_cast<const uint8_t*>(manifestRequest.responseBody);
    size_t length = body ? static_cast<size_t>(manifestRequest.responseBodyLength) : 0;

    HttpRequest signatureRequest;
    if (!Get(signatureRequest, domain, SignaturePath(pathAndQuery))) {
        LogW(L"Refused the manifest of %s: its signature could not be fetched.", domain.c_str());
        return nullptr;
    }
    uint8_t signature[kEd25519SignatureSize];
    if (!signatureRequest.responseBody ||
        !ReadSignatureBody(signatureRequest.responseBody, static_cast<size_t>(signatureRequest.responseBodyLength),
                           signature)) {
        LogW(L"Refused the manifest of %s: its signature is not 128 hexadecimal digits.", domain.c_str());
        return nullptr;
    }
    if (!Ed25519Verify(config.publicKeyBytes, body, length, signature)) {
        LogW(L"Refused the manifest of %s: its signature does not match the manifest and the publicKey.",
             domain.c_str());
        return nullptr;
    }

    wJsonObject* manifest = ParseManifestBody(body, length);
    if (!manifest)
        return nullptr;
    uint64_t version = 0;
    if (!AcceptTerms(*manifest, domain, version)) {
        manifest->Release();
        return nullptr;
    }
    config.releaseVersion = version;
    return manifest;
}
