// Ends through FatalError in the way the first argument names, with an unhandled-exception
// filter that prints what it sees ("code=0x... value=0x...") and exits with the raised value.
#include "runtime/fatal.h"
#include "runtime/pool.h"

#include <windows.h>
#include <cstdio>
#include <cwchar>
#include <thread>

namespace {

LONG WINAPI Filter(EXCEPTION_POINTERS* info)
{
    const EXCEPTION_RECORD* record = info->ExceptionRecord;
    ULONG_PTR value = record->NumberParameters > 0 ? record->ExceptionInformation[0] : 0;
    char line[128];
    int length = snprintf(line, sizeof(line), "code=0x%08lX value=0x%08llX\n", record->ExceptionCode,
                          static_cast<unsigned long long>(value));
    DWORD written;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), line, static_cast<DWORD>(length), &written, nullptr);
    ExitProcess(static_cast<UINT>(value));
}

DWORD WINAPI RaiseOnThread(void*)
{
    FatalError(0x12345678);
}

void ThrowCode()
{
    throw uint32_t(0x0BADC0DE);
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    PoolInit();
    InstallTerminateHandler();
    SetUnhandledExceptionFilter(Filter);
    const wchar_t* mode = argc > 1 ? argv[1] : L"main";
    if (!wcscmp(mode, L"main")) {
        FatalError(0x89534242);
    } else if (!wcscmp(mode, L"thread")) {
        HANDLE thread = CreateThread(nullptr, 0, RaiseOnThread, nullptr, 0, nullptr);
        WaitForSingleObject(thread, INFINITE);
    } else if (!wcscmp(mode, L"throw-thread")) {
        std::thread([] { ThrowCode(); }).join();
    } else if (!wcscmp(mode, L"pool")) {
        // Takes 1 GiB blocks until the heap refuses one (the caller limits the address space).
        for (;;)
            PoolAlloc(30);
    }
    return 0;
}
