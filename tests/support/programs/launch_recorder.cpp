// Records how it was started: writes its command line and current folder, each as a UTF-8
// line, to "<own path>.txt" (beside itself, so it needs no argument), and exits with 0x1234
// so that a parent can tell that the exit code reached it.
#include "runtime/text.h"

#include <windows.h>

int wmain(int, wchar_t**)
{
    wchar_t folder[4096];
    DWORD length = GetCurrentDirectoryW(4096, folder);
    std::string text = WideToUtf8(GetCommandLineW()) + "\r\n" + WideToUtf8(folder, length) + "\r\n";
    HANDLE file = CreateFileW((GetModulePath() + L".txt").c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                              CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return 1;
    DWORD written;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
    return 0x1234;
}
