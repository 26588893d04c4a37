// The crash reporter: an unhandled-exception filter that writes a text report of the exception
// and of the process's memory counters, and a full-memory minidump, beside the program.
#pragma once
#include <cstdint>

struct _EXCEPTION_POINTERS;

constexpr uint32_t kCrashPathLength = 4096;

// The program's own path; the report and dump names start with it.
extern wchar_t crashBasePath[kCrashPathLength];
extern uint32_t crashDumpType;
extern void* crashProcess;
extern uint32_t crashProcessId;

// Fills the reporter's state (the path must already be in crashBasePath).
void InitCrashReporter();
// The program's path into crashBasePath (0x89534242 when it cannot be read), the reporter's
// state, the unhandled-exception filter and the terminate handler: what each program's entry
// sets up first.
void InstallCrashReporter();
// The filter: 1 when the minidump was written, 0 otherwise. Uses neither the pool nor the logger.
long __stdcall CrashHandler(_EXCEPTION_POINTERS* exception);
