// wThread and the debugger's thread-naming convention.
#include "runtime/thread.h"
#include "runtime/fatal.h"

#include <windows.h>
#include <cstring>

// Auto-reset: the wait that a signal ends takes the signal with it, so no loop resets the event
// (under Wine a reset is one more trip to the server per pass), and a signal given just after a
// wait timed out is kept for the next wait instead of being reset away.
wThread::wThread() : wakeEvent(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

wThread::~wThread()
{
    Stop();
}

void wThread::Start(const char* threadName, uint32_t runningCode, uint32_t createCode)
{
    if (thread)
        FatalError(runningCode);
    ResetEvent(wakeEvent.Get());
    threadId = 0;
    stopFlag = false;
    strncpy(name, threadName ? threadName : "", sizeof(name) - 1);
    name[sizeof(name) - 1] = 0;
    DWORD id = 0;
    HANDLE created = CreateThread(nullptr, 0, Procedure, this, 0, &id);
    if (!created) {
        if (GetLastError() != 0)
            FatalError(createCode);
        return;
    }
    thread = created;
}

void wThread::Stop()
{
    // Whoever takes the handle out, this call or the ending thread itself, closes it.
    UniqueHandle running(thread.exchange(nullptr));
    if (running) {
        stopFlag = true;
        SetEvent(wakeEvent.Get());
        WaitForSingleObject(running.Get(), INFINITE);
    }
    running.Reset();
    wakeEvent.Reset();
}

bool wThread::Begin() { return true; }
bool wThread::Loop() { return false; }
void wThread::End() {}

unsigned long __stdcall wThread::Procedure(void* argument)
{
    auto* self = static_cast<wThread*>(argument);
    self->threadId = GetCurrentThreadId();
    if (self->name[0])
        SetThreadName(self->name);
    if (self->Begin()) {
        while (!self->stopFlag && self->Loop()) {
        }
        self->End();
    }
    self->threadId = 0;
    self->stopFlag = false;
    // Closes the thread's own handle unless Stop has taken it out already.
    UniqueHandle(self->thread.exchange(nullptr)).Reset();
    return 0;
}

namespace {

constexpr DWORD kSetThreadNameException = 0x406D1388;

LONG CALLBACK SwallowThreadName(EXCEPTION_POINTERS* info)
{
    return info->ExceptionRecord->ExceptionCode == kSetThreadNameException ? EXCEPTION_CONTINUE_EXECUTION
                                                                          : EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

void SetThreadName(const char* threadName)
{
    // An attached debugger takes the name from the first-chance exception; without one the
    // handler swallows it so that the process never sees it.
    ULONG_PTR info[4] = {0x1000, reinterpret_cast<ULONG_PTR>(threadName), GetCurrentThreadId(), 0};
    void* handler = AddVectoredExceptionHandler(1, SwallowThreadName);
    RaiseException(kSetThreadNameException, 0, 4, info);
    RemoveVectoredExceptionHandler(handler);
}
