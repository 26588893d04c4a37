// CreateDirectoryPath on CreateDirectoryW alone. The shell's function gives the same results but
// loads shell32 (and user32 with it), which under Wine costs a run tens of milliseconds.
#include "runtime/folder.h"

#include <windows.h>

namespace {

uint32_t CreateOne(const std::wstring& path)
{
    return CreateDirectoryW(path.c_str(), nullptr) ? 0 : GetLastError();
}

// Where the first folder below the root begins: after "X:\", after "\\server\share\", after "\".
size_t BelowRoot(const std::wstring& path)
{
    if (path.size() >= 2 && path[1] == L':')
        return 3;
    if (path.compare(0, 2, L"\\\\") == 0) {
        size_t share = path.find(L'\\', 2);
        size_t below = share == std::wstring::npos ? share : path.find(L'\\', share + 1);
        return below == std::wstring::npos ? path.size() : below + 1;
    }
    return 1;
}

}  // namespace

uint32_t CreateDirectoryPath(const std::wstring& path)
{
    // Absolute means a drive letter or a leading backslash, as the shell reads it.
    if (path.empty() || !(path[0] == L'\\' || (path.size() >= 2 && path[1] == L':')))
        return ERROR_BAD_PATHNAME;
    uint32_t result = CreateOne(path);
    if (result != ERROR_PATH_NOT_FOUND)
        return result;
    // Parents are made from the top down; one that exists already or cannot be made shows in
    // the folder's own result.
    for (size_t at = path.find(L'\\', BelowRoot(path)); at != std::wstring::npos; at = path.find(L'\\', at + 1))
        CreateOne(path.substr(0, at));
    return CreateOne(path);
}
