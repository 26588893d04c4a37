// The manifest of a signed release: fetched with its signature from one server and accepted only
// when the signature, the expiry and the version all hold.
#pragma once
#include <string>

class wJsonObject;

// The manifest of `domain`, which the caller releases, or null after one log line saying why the
// server's manifest was refused. Sets the configuration's release version.
wJsonObject* FetchSignedManifest(const std::wstring& pathAndQuery, const std::wstring& domain);
