// The release state file "VeyUpdater.release" in the program folder.
#include "app/release_state.h"
#include "app/config.h"
#include "runtime/handles.h"
#include "runtime/logger.h"
#include "release/release_terms.h"

#include <windows.h>

namespace {

constexpr wchar_t kStateName[] = L"VeyUpdater.release";
constexpr DWORD kMaxStateSize = 64;

}  // namespace

uint64_t ReadAppliedRelease()
{
    std::wstring path = ProgramDirectory + kStateName;
    UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!file)
        return 0;
    char text[kMaxStateSize];
    DWORD got = 0;
    uint64_t version = 0;
    if (!ReadFile(file.Get(), text, kMaxStateSize, &got, nullptr) || !ReadAppliedVersion(text, got, version)) {
        LogW(L"Ignored the unreadable release state. %s", path.c_str());
        return 0;
    }
    return version;
}

void WriteAppliedRelease(uint64_t version)
{
    std::wstring path = ProgramDirectory + kStateName;
    std::wstring temporary = path + L".tmp";
    std::string text = FormatAppliedVersion(version);
    bool written = false;
    DWORD error = 0;
    {
        UniqueHandle file(CreateFileW(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
        DWORD put = 0;
        written = file && WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &put, nullptr) &&
                  put == text.size() && FlushFileBuffers(file.Get());
        error = GetLastError();
    }
    if (written && !MoveFileExW(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        written = false;
        error = GetLastError();
    }
    if (!written) {
        LogW(L"Failed to record the applied release. (0x%08X) %s", error, path.c_str());
        DeleteFileW(temporary.c_str());
        return;
    }
    LogW(L"Recorded release version %I64u.", static_cast<unsigned long long>(version));
}
