// The small operations through which an update acts on the machine: services through the
// system's net.exe, processes closed through their main window or terminated, a named pipe
// signalled. Plain blocking functions without state.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

struct HWND__;

// Runs "<system folder>\net.exe <verb> "<serviceName>"" hidden and waits for it without limit.
// The result is net.exe's exit code (0: success), or the Windows error if it could not run.
uint32_t RunNetCommand(const std::wstring& verb, const std::wstring& serviceName);

// Where RunNetCommand reads the system folder: GetSystemDirectoryW by default, replaceable by
// tests. Returns the length written, 0 on failure.
extern uint32_t (*readSystemDirectory)(wchar_t* buffer, uint32_t size);

// The first visible top-level window without an owner that belongs to the process; null if none.
HWND__* FindMainWindow(uint32_t processId);

// Asks the first running process whose executable name is in `names` (ASCII case ignored)
// to close: WM_CLOSE and 0x6207 to its main window, then waits up to 30 s for it to end.
void CloseProcessByName(const std::vector<std::wstring>& names);

// Terminates the first running process whose executable name is in `names` (ASCII case
// ignored) with exit code 0xFFFFFFFF and waits for it to end.
void KillProcessByName(const std::vector<std::wstring>& names);

// Connects to "\\.\pipe\<name>", reads zero bytes and disconnects; a missing pipe is skipped.
void SignalPipe(const std::wstring& name);
