// Service and process control: net.exe runs, closing and terminating processes by executable
// name, and the named-pipe signal.
#include "app/control.h"

#include "runtime/handles.h"
#include "runtime/logger.h"
#include "runtime/system_function.h"
#include "runtime/text.h"

#include <windows.h>
#include <tlhelp32.h>

#include <cwchar>
#include <set>

namespace {

constexpr UINT kCloseNotice = 0x6207;
constexpr DWORD kCloseWaitMs = 30000;

uint32_t SystemDirectory(wchar_t* buffer, uint32_t size)
{
    return GetSystemDirectoryW(buffer, size);
}

// Finds the first process in the snapshot's order whose executable name, with A-Z lowered,
// is one of `names`. False when none matches or no snapshot can be taken. An empty name
// matches nothing: a process that is still starting is listed without a name for a moment.
bool FindFirstProcess(const std::vector<std::wstring>& names, PROCESSENTRY32W& found)
{
    std::set<std::wstring> wanted;
    for (const std::wstring& name : names)
        if (!name.empty())
            wanted.insert(LowerAscii(name));
    if (wanted.empty())
        return false;
    UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot)
        return false;
    found.dwSize = sizeof(found);
    BOOL more = Process32FirstW(snapshot.Get(), &found);
    while (more && !wanted.count(LowerAscii(std::wstring(found.szExeFile))))
        more = Process32NextW(snapshot.Get(), &found);
    return more != FALSE;
}

// user32 is loaded by the first run that looks for a window.
const wchar_t kUser32[] = L"user32.dll";

struct WindowSearch {
    DWORD processId;
    HWND window;
};

BOOL CALLBACK TakeMainWindow(HWND window, LPARAM context)
{
    auto* search = reinterpret_cast<WindowSearch*>(context);
    DWORD owner = 0;
    static const auto windowProcess =
        SystemFunctionOf<decltype(&GetWindowThreadProcessId)>(kUser32, "GetWindowThreadProcessId");
    static const auto getWindow = SystemFunctionOf<decltype(&GetWindow)>(kUser32, "GetWindow");
    static const auto isVisible = SystemFunctionOf<decltype(&IsWindowVisible)>(kUser32, "IsWindowVisible");
    windowProcess(window, &owner);
    if (owner != search->processId || getWindow(window, GW_OWNER) || !isVisible(window))
        return TRUE;
    search->window = window;
    return FALSE;
}

}  // namespace

uint32_t (*readSystemDirectory)(wchar_t* buffer, uint32_t size) = SystemDirectory;

uint32_t RunNetCommand(const std::wstring& verb, const std::wstring& serviceName)
{
    std::wstring folder(4096, L'\0');
    if (readSystemDirectory(&folder[0], static_cast<uint32_t>(folder.size())) == 0)
        folder = L"C:\\Windows\\System32";
    folder.resize(wcslen(folder.c_str()));
    std::wstring application = FormatW(L"%s\\net.exe", folder.c_str());
    std::wstring commandLine = FormatW(L"%s\\net.exe %s \"%s\"", folder.c_str(), verb.c_str(), serviceName.c_str());

    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = SW_HIDE;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(application.c_str(), &commandLine[0], nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                        nullptr, &startup, &process))
        return GetLastError();
    UniqueHandle thread(process.hThread), running(process.hProcess);
    WaitForSingleObject(running.Get(), INFINITE);
    DWORD exitCode = 0;
    if (!GetExitCodeProcess(running.Get(), &exitCode))
        exitCode = GetLastError();
    return exitCode;
}

HWND__* FindMainWindow(uint32_t processId)
{
    WindowSearch search = {processId, nullptr};
    static const auto enumWindows = SystemFunctionOf<decltype(&EnumWindows)>(kUser32, "EnumWindows");
    enumWindows(TakeMainWindow, reinterpret_cast<LPARAM>(&search));
    return search.window;
}

void CloseProcessByName(const std::vector<std::wstring>& names)
{
    PROCESSENTRY32W entry;
    if (!FindFirstProcess(names, entry))
        return;
    HWND window = FindMainWindow(entry.th32ProcessID);
    if (!window)
        return;
    LogW(L"Closing %s(%u) process.", entry.szExeFile, entry.th32ProcessID);
    static const auto postMessage = SystemFunctionOf<decltype(&PostMessageW)>(kUser32, "PostMessageW");
    postMessage(window, WM_CLOSE, 0, 0);
    postMessage(window, kCloseNotice, 0, 0);
    UniqueHandle process(OpenProcess(SYNCHRONIZE, FALSE, entry.th32ProcessID));
    if (!process)
        return;
    if (WaitForSingleObject(process.Get(), kCloseWaitMs) == WAIT_OBJECT_0)
        LogW(L"Closed %s(%u) is closed.", entry.szExeFile, entry.th32ProcessID);
    else
        LogW(L"Failed to close %s(%u) process.", entry.szExeFile, entry.th32ProcessID);
}

void KillProcessByName(const std::vector<std::wstring>& names)
{
    PROCESSENTRY32W entry;
    if (!FindFirstProcess(names, entry))
        return;
    UniqueHandle process(OpenProcess(PROCESS_ALL_ACCESS, FALSE, entry.th32ProcessID));
    if (!process || !TerminateProcess(process.Get(), 0xFFFFFFFF)) {
        LogW(L"Failed to terminate %s process. (0x%08X)", entry.szExeFile, GetLastError());
    } else {
        WaitForSingleObject(process.Get(), INFINITE);
        LogW(L"Terminated %s process.", entry.szExeFile);
    }
}

void SignalPipe(const std::wstring& name)
{
    std::wstring path = FormatW(L"\\\\.\\pipe\\%s", name.c_str());
    UniqueHandle pipe(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (pipe)
        ReadFile(pipe.Get(), nullptr, 0, nullptr, nullptr);
}
