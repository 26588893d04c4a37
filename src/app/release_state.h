// The installation's release state: the version of the last signed release applied here, kept in
// a small file beside the program so that an older release is never applied after a newer one.
#pragma once
#include <cstdint>
#include <string>

// The version last applied in the program folder `programDirectory`; 0 when none was (no file, or
// one that cannot be read).
uint64_t ReadAppliedRelease(const std::wstring& programDirectory);
// Records the version: the file is written under a temporary name and moved over the old one, so
// that it always holds one whole version. Logs a failure.
void WriteAppliedRelease(const std::wstring& programDirectory, uint64_t version);
