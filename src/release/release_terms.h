// Readers of the terms a signed release sets: its version, its expiry time and the version an
// installation last applied, as kept in its state file. Pure functions over text: anything but
// the exact form gives false.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

// The largest version: every integer up to it is exact in a JSON number.
constexpr uint64_t kMaxReleaseVersion = (uint64_t(1) << 53) - 1;

// "version": a whole number from 1 to kMaxReleaseVersion.
bool ReadReleaseVersion(double value, uint64_t& version);
// "expires": "YYYY-MM-DDTHH:MM:SSZ", a valid UTC date and time from year 1970 on, as seconds since
// 1970-01-01T00:00:00Z.
bool ReadExpiryTime(const std::wstring& text, int64_t& seconds);
// The state file: the decimal digits of a version (no leading zero), optionally followed by CR LF.
bool ReadAppliedVersion(const void* bytes, size_t length, uint64_t& version);
// The state file's content for a version.
std::string FormatAppliedVersion(uint64_t version);
// The path of a manifest's signature: ".sig" appended to the path part, before any "?".
std::wstring SignaturePath(const std::wstring& pathAndQuery);
