// The manifest: fetched from one domain, parsed, compared with the local files.
#pragma once
#include <cstddef>
#include <string>

class wJsonObject;
struct UpdateItem;

// The manifest of one domain fetched and processed; true when the run sequence is to stop trying
// further domains.
bool FetchManifest(const std::wstring& pathAndQuery, const std::wstring& domain);
// "(local hash -> hash) (local size -> size) (name)"; a local size with all bits set shows as "_".
std::wstring PlanLine(const UpdateItem& item);
// Records the files that differ from the manifest and runs the update; true in every case. A
// signed release that was applied whole is recorded as the installation's release.
bool ProcessManifest(const wJsonObject& manifest);
