// The smaller forms of an item of the objects format from one update server: the patch for the
// installed file's SHA-1 when the manifest lists one, else the compressed object. Each is decoded
// straight into the staging file as it arrives and verified as a plain download is.
#pragma once
#include <string>

struct DownloadRequest;

// Tries the patch, then the compressed object, from `host`; true once one of them decoded to the
// item exactly. Each failure is logged with its reason, and the caller goes on with the plain file.
bool DownloadSmallerForm(const DownloadRequest& request, const std::wstring& host);
