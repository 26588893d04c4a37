// The SHA-256 of a file on disk, as a signed release's downloads are checked against it.
#pragma once
#include <cstdint>
#include <string>

#include "crypto/sha256.h"

// Reads the whole file in pieces and writes its digest; false when it cannot be opened or read.
bool Sha256OfFile(const std::wstring& path, uint8_t digest[kSha256DigestSize]);
// True when the file's SHA-256 equals the 64 hexadecimal digits of `expected` (either case).
bool FileMatchesSha256(const std::wstring& path, const std::wstring& expected);
