// The completion port and its worker pool: one worker is always left waiting on the port,
// so a thread that blocks on an operation can always be woken.
#include "runtime/iocp.h"
#include "runtime/fatal.h"
#include "runtime/handles.h"
#include "runtime/io_request.h"
#include "runtime/pool.h"
#include "runtime/thread.h"

#include <windows.h>
#include <atomic>
#include <utility>

namespace {

struct WorkerRecord {
    WorkerRecord* next;
    HANDLE thread;
};

struct IocpPort {
    UniqueHandle port;
    CriticalSection lock;
    std::atomic<long> busy{0};
    std::atomic<long> workers{0};
    WorkerRecord* list = nullptr;
} iocp;

DWORD WINAPI WorkerLoop(void* port)
{
    SetThreadName("_wIocp");
    for (;;) {
        DWORD bytes = 0;
        ULONG_PTR key = 0;
        OVERLAPPED* overlapped = nullptr;
        BOOL ok = GetQueuedCompletionStatus(port, &bytes, &key, &overlapped, INFINITE);
        // No request with the wake-up: the port was closed, or shutdown posted an empty packet.
        if (!overlapped)
            return 0;
        if (!ok)
            reinterpret_cast<IoRequest*>(overlapped)->error = GetLastError();
        if (++iocp.busy == iocp.workers)
            IocpAddWorker();
        reinterpret_cast<IoRequest*>(overlapped)->transferred = bytes;
        reinterpret_cast<CompletionHandler>(key)(overlapped);
        --iocp.busy;
    }
}

}  // namespace

void IocpStart()
{
    iocp.port.Reset(CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 0));
    if (!iocp.port)
        FatalError(kFatalIocpPort);
    iocp.busy = 0;
    iocp.workers = 0;
    iocp.list = nullptr;
    IocpAddWorker();
}

void IocpAddWorker()
{
    CriticalSectionLock adding(iocp.lock, CriticalSectionLock::TryOnly{});
    if (!adding.Held())
        return;
    if (iocp.port) {
        HANDLE thread = CreateThread(nullptr, 0, WorkerLoop, iocp.port.Get(), 0, nullptr);
        if (!thread)
            FatalError(kFatalIocpWorker);
        auto* record = static_cast<WorkerRecord*>(PoolAlloc(PoolClassFor(sizeof(WorkerRecord))));
        record->thread = thread;
        record->next = iocp.list;
        iocp.list = record;
        ++iocp.workers;
    }
}

void IocpShutdown()
{
    UniqueHandle port;
    {
        CriticalSectionLock taking(iocp.lock);
        port = std::move(iocp.port);
    }
    // Closing the port does not wake blocked waiters under Wine, so each worker also gets an
    // empty packet, taken after the work queued before it.
    for (long i = 0; i < iocp.workers; ++i)
        PostQueuedCompletionStatus(port.Get(), 0, 0, nullptr);
    port.Reset();
    while (WorkerRecord* record = iocp.list) {
        UniqueHandle thread(record->thread);
        WaitForSingleObject(thread.Get(), INFINITE);
        iocp.list = record->next;
        PoolFree(record);
    }
    iocp.workers = 0;
}

uint32_t IocpBind(void* handle, CompletionHandler handler)
{
    if (!CreateIoCompletionPort(handle, iocp.port.Get(), reinterpret_cast<ULONG_PTR>(handler), 0))
        return GetLastError();
    return 0;
}

void IocpPost(CompletionHandler handler, _OVERLAPPED* overlapped, uint32_t bytes)
{
    if (!PostQueuedCompletionStatus(iocp.port.Get(), bytes, reinterpret_cast<ULONG_PTR>(handler), overlapped))
        FatalError(kFatalIocpPost);
}

uint32_t IocpWorkerCount() { return static_cast<uint32_t>(iocp.workers.load()); }
uint32_t IocpBusyCount() { return static_cast<uint32_t>(iocp.busy.load()); }
