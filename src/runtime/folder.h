// CreateDirectoryPath: a folder made together with its missing parents.
#pragma once
#include <cstdint>
#include <string>

// Creates the folder and its missing parents: 0, or the Windows error of the folder itself
// (183 if it exists, 161 for a relative path, 3 when a parent cannot be made).
uint32_t CreateDirectoryPath(const std::wstring& path);
