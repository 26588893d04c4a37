// Folder paths: one made together with its missing parents, one deleted with all it holds.
#pragma once
#include <cstdint>
#include <string>

// Creates the folder and its missing parents: 0, or the Windows error of the folder itself
// (183 if it exists, 161 for a relative path, 3 when a parent cannot be made).
uint32_t CreateDirectoryPath(const std::wstring& path);

// Deletes the folder and everything in it, read-only and hidden entries too; a link to a folder is
// removed without entering it. 0 when it is gone, 2 when nothing was there; otherwise the Windows
// error of the first entry that could not be removed (32 for a file held open), the rest removed.
uint32_t DeleteFolderTree(const std::wstring& path);
