// The manifest: fetched from one domain, parsed, compared with the local files.
#pragma once
#include <string>

class wJsonObject;

// True when the run sequence is to stop trying further domains.
bool FetchManifest(const std::wstring& pathAndQuery, const std::wstring& domain);
// Records the files that differ from the manifest and runs the update; true in every case.
bool ProcessManifest(const wJsonObject& manifest);
