// Holds a file open without delete sharing, as a running program holds its own files.
// Arguments: PATH MILLISECONDS RECORD-FILE. Writes "held" to RECORD-FILE once the file is open,
// keeps it open for the given time, then closes it and ends.
#include <windows.h>
#include <cwchar>

int wmain(int argc, wchar_t** argv)
{
    if (argc < 4)
        return 2;
    HANDLE held = CreateFileW(argv[1], GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (held == INVALID_HANDLE_VALUE)
        return 1;
    HANDLE record = CreateFileW(argv[3], GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written;
    WriteFile(record, "held", 4, &written, nullptr);
    CloseHandle(record);
    Sleep(static_cast<DWORD>(wcstoul(argv[2], nullptr, 10)));
    CloseHandle(held);
    return 0;
}
