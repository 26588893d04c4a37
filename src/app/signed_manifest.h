// The manifest of a signed release: fetched with its signature from one server and accepted only
// when the signature, the expiry and the version all hold.
#pragma once
#include "json/value.h"
#include "runtime/handles.h"

#include <cstdint>
#include <string>

struct UpdaterConfig;

// The manifest of `domain` with its release `version`, or null after one log line saying why the
// server's manifest was refused.
wJsonRoot<wJsonObject> FetchSignedManifest(const UpdaterConfig& config, const std::wstring& domain,
                                           uint64_t& version);
