// A launcher's end of the progress pipe, for the progress tests. Arguments: PIPE-NAME FOLDER MODE
// [LINES]. Creates "\\.\pipe\PIPE-NAME" (inbound, byte mode, buffers of 1024 bytes), appends
// "listening" to FOLDER\status.txt and waits for the updater. Then by MODE:
//   read   reads until the updater closes its end; every byte read goes to FOLDER\lines.txt
//   never  reads nothing, until the test creates FOLDER\stop
//   close  reads until LINES lines have come (into lines.txt), then disconnects
// and appends "done" to status.txt before it exits.
#include <windows.h>
#include <string>

namespace {

void Append(const std::wstring& path, const char* data, DWORD length)
{
    HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written;
    WriteFile(file, data, length, &written, nullptr);
    CloseHandle(file);
}

void Status(const std::wstring& folder, const std::string& line)
{
    std::string text = line + "\r\n";
    Append(folder + L"\\status.txt", text.data(), static_cast<DWORD>(text.size()));
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 4)
        return 2;
    std::wstring name = std::wstring(L"\\\\.\\pipe\\") + argv[1];
    std::wstring folder = argv[2];
    std::wstring mode = argv[3];
    long wanted = argc > 4 ? wcstol(argv[4], nullptr, 10) : 0;
    HANDLE pipe = CreateNamedPipeW(name.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE | PIPE_WAIT, 1, 1024, 1024, 0,
                                   nullptr);
    if (pipe == INVALID_HANDLE_VALUE)
        return 1;
    Status(folder, "listening");
    if (!ConnectNamedPipe(pipe, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED)
        return 1;
    if (mode == L"never") {
        std::wstring stop = folder + L"\\stop";
        while (GetFileAttributesW(stop.c_str()) == INVALID_FILE_ATTRIBUTES)
            Sleep(20);
    } else {
        long lines = 0;
        char buffer[4096];
        DWORD got = 0;
        while ((mode != L"close" || lines < wanted) && ReadFile(pipe, buffer, mode == L"close" ? 1 : sizeof(buffer), &got,
                                                               nullptr)) {
            Append(folder + L"\\lines.txt", buffer, got);
            for (DWORD i = 0; i < got; ++i)
                lines += buffer[i] == '\n';
        }
        if (mode == L"close")
            DisconnectNamedPipe(pipe);
    }
    Status(folder, "done");
    CloseHandle(pipe);
    return 0;
}
