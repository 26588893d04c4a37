// One-shot named-pipe server for the pipe-signal tests. Arguments: PIPE-NAME RECORD-FILE.
// Creates "\\.\pipe\PIPE-NAME", appends "listening" to RECORD-FILE, waits for one client and
// appends "connected". 200 ms later it appends "client waiting" if the client still holds the
// pipe open (as a client blocked in a zero-byte read does), else "client gone"; then it
// disconnects, which ends such a read, and exits.
#include <windows.h>
#include <string>

namespace {

void Record(const wchar_t* path, const char* line)
{
    HANDLE file = CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    std::string text = std::string(line) + "\r\n";
    DWORD written;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 3)
        return 2;
    std::wstring name = std::wstring(L"\\\\.\\pipe\\") + argv[1];
    HANDLE pipe = CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1, 0, 0, 0, nullptr);
    if (pipe == INVALID_HANDLE_VALUE)
        return 1;
    Record(argv[2], "listening");
    if (!ConnectNamedPipe(pipe, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED)
        return 1;
    Record(argv[2], "connected");
    Sleep(200);
    Record(argv[2], PeekNamedPipe(pipe, nullptr, 0, nullptr, nullptr, nullptr) ? "client waiting" : "client gone");
    DisconnectNamedPipe(pipe);
    CloseHandle(pipe);
    return 0;
}
