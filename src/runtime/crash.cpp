// CrashHandler writes "<program>_<date>_<time>_<thread>.log" and ".dmp" (semicolons stand for
// the colons that file names cannot hold). It runs when something has gone badly wrong, so it
// touches no pooled memory and no logger: fixed buffers and direct writes only.
#include "runtime/crash.h"
#include "runtime/fatal.h"
#include "runtime/handles.h"
#include "runtime/printf_check.h"

#include <windows.h>
#include <dbghelp.h>
#include <psapi.h>
#include <cstdio>

wchar_t crashBasePath[kCrashPathLength];
uint32_t crashDumpType = 0;
void* crashProcess = nullptr;
uint32_t crashProcessId = 0;

namespace {

// Made once and never deleted, so that a crash while the process ends still finds it.
CriticalSection* crashLock = nullptr;

VEY_PRINTF_A(2, 3) void WriteLine(HANDLE file, const char* format, ...)
{
    char line[512];
    va_list args;
    va_start(args, format);
    int length = _vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    if (length < 0 || length > static_cast<int>(sizeof(line)))
        length = sizeof(line);
    DWORD written;
    WriteFile(file, line, static_cast<DWORD>(length), &written, nullptr);
}

void WriteReport(HANDLE file, const EXCEPTION_RECORD* record)
{
    WriteLine(file, "==== ExceptionInfo ====\r\n");
    WriteLine(file, "ExceptionCode = 0x%08lX\r\n", record->ExceptionCode);
    WriteLine(file, "ExceptionFlags = 0x%08lX\r\n", record->ExceptionFlags);
    WriteLine(file, "ExceptionRecord = 0x%I64X\r\n", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(record->ExceptionRecord)));
    WriteLine(file, "ExceptionAddress = 0x%I64X\r\n", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(record->ExceptionAddress)));
    WriteLine(file, "NumberParameters = %lu\r\n", record->NumberParameters);
    for (DWORD i = 0; i < record->NumberParameters && i < EXCEPTION_MAXIMUM_PARAMETERS; ++i)
        WriteLine(file, "ExceptionInformation[%lu] = 0x%I64X\r\n", i, static_cast<unsigned long long>(record->ExceptionInformation[i]));
    WriteLine(file, "\r\n");

    PROCESS_MEMORY_COUNTERS counters = {};
    counters.cb = sizeof(counters);
    if (K32GetProcessMemoryInfo(crashProcess, &counters, sizeof(counters))) {
        WriteLine(file, "==== MemoryInfo ====\r\n");
        WriteLine(file, "PageFaultCount = %lu\r\n", counters.PageFaultCount);
        WriteLine(file, "PeakWorkingSetSize = %I64u\r\n", static_cast<unsigned long long>(counters.PeakWorkingSetSize));
        WriteLine(file, "WorkingSetSize = %I64u\r\n", static_cast<unsigned long long>(counters.WorkingSetSize));
        WriteLine(file, "QuotaPeakPagedPoolUsage = %I64u\r\n", static_cast<unsigned long long>(counters.QuotaPeakPagedPoolUsage));
        WriteLine(file, "QuotaPagedPoolUsage = %I64u\r\n", static_cast<unsigned long long>(counters.QuotaPagedPoolUsage));
        WriteLine(file, "QuotaPeakNonPagedPoolUsage = %I64u\r\n", static_cast<unsigned long long>(counters.QuotaPeakNonPagedPoolUsage));
        WriteLine(file, "QuotaNonPagedPoolUsage = %I64u\r\n", static_cast<unsigned long long>(counters.QuotaNonPagedPoolUsage));
        WriteLine(file, "PagefileUsage = %I64u\r\n", static_cast<unsigned long long>(counters.PagefileUsage));
        WriteLine(file, "PeakPagefileUsage = %I64u\r\n\r\n", static_cast<unsigned long long>(counters.PeakPagefileUsage));
    }
}

}  // namespace

void InitCrashReporter()
{
    if (!crashLock)
        crashLock = new CriticalSection;
    crashDumpType = MiniDumpWithFullMemory;
    crashProcess = GetCurrentProcess();
    crashProcessId = GetCurrentProcessId();
}

void InstallCrashReporter()
{
    if (GetModuleFileNameW(nullptr, crashBasePath, kCrashPathLength) == 0)
        FatalError(kFatalCrashPath);
    InitCrashReporter();
    SetUnhandledExceptionFilter(CrashHandler);
    InstallTerminateHandler();
}

long __stdcall CrashHandler(_EXCEPTION_POINTERS* exception)
{
    CriticalSectionLock reporting(*crashLock);
    SYSTEMTIME now;
    GetLocalTime(&now);
    DWORD threadId = GetCurrentThreadId();

    wchar_t name[kCrashPathLength + 64];
    _snwprintf(name, sizeof(name) / sizeof(name[0]), L"%s_%04u-%02u-%02u_%02u;%02u;%02u.%03u_%u.log", crashBasePath,
               now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, threadId);
    name[sizeof(name) / sizeof(name[0]) - 1] = 0;
    UniqueHandle report(CreateFileW(name, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (report) {
        WriteReport(report.Get(), exception->ExceptionRecord);
        FlushFileBuffers(report.Get());
        report.Reset();
    }

    _snwprintf(name, sizeof(name) / sizeof(name[0]), L"%s_%04u-%02u-%02u_%02u;%02u;%02u.%03u_%u.dmp", crashBasePath,
               now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, threadId);
    name[sizeof(name) / sizeof(name[0]) - 1] = 0;
    long result = 0;
    UniqueHandle dump(CreateFileW(name, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (dump) {
        MINIDUMP_EXCEPTION_INFORMATION info = {threadId, exception, FALSE};
        if (MiniDumpWriteDump(crashProcess, crashProcessId, dump.Get(), static_cast<MINIDUMP_TYPE>(crashDumpType),
                              &info, nullptr, nullptr))
            result = 1;
        FlushFileBuffers(dump.Get());
    }
    return result;
}
