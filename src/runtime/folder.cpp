// CreateDirectoryPath and DeleteFolderTree on the file functions alone. The shell's functions
// load shell32 (and user32 with it), which under Wine costs a run tens of milliseconds.
#include "runtime/folder.h"

#include <windows.h>
#include <utility>
#include <vector>

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

// Removes a file or an empty folder, clearing a read-only attribute that stands in the way: 0, or
// the Windows error.
uint32_t RemoveEntry(const std::wstring& path, bool folder)
{
    auto remove = [&] { return folder ? RemoveDirectoryW(path.c_str()) : DeleteFileW(path.c_str()); };
    if (remove())
        return 0;
    uint32_t error = GetLastError();
    if (error == ERROR_ACCESS_DENIED && SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL))
        error = remove() ? 0 : GetLastError();
    return error;
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

uint32_t DeleteFolderTree(const std::wstring& path)
{
    if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
        return ERROR_FILE_NOT_FOUND;
    uint32_t first = 0;
    auto remove = [&first](const std::wstring& entry, bool folder) {
        uint32_t error = RemoveEntry(entry, folder);
        if (first == 0)
            first = error;
    };
    // Depth first over an explicit list, so that a deep tree cannot exhaust the stack; a folder
    // is removed once the entries found in it have been.
    std::vector<std::pair<std::wstring, bool>> pending{{path, false}};
    while (!pending.empty()) {
        if (pending.back().second) {
            remove(pending.back().first, true);
            pending.pop_back();
            continue;
        }
        pending.back().second = true;
        std::wstring folder = pending.back().first;
        WIN32_FIND_DATAW found;
        HANDLE search = FindFirstFileExW((folder + L"\\*").c_str(), FindExInfoBasic, &found, FindExSearchNameMatch,
                                         nullptr, FIND_FIRST_EX_LARGE_FETCH);
        if (search == INVALID_HANDLE_VALUE)
            continue;
        do {
            std::wstring name = found.cFileName;
            if (name == L"." || name == L"..")
                continue;
            std::wstring child = folder + L"\\" + name;
            bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
            if (isFolder && !(found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT))
                pending.emplace_back(std::move(child), false);
            else
                remove(child, isFolder);
        } while (FindNextFileW(search, &found));
        FindClose(search);
    }
    if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
        return 0;
    return first != 0 ? first : ERROR_DIR_NOT_EMPTY;
}
