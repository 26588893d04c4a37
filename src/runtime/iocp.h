// The process's single I/O completion port and its self-growing pool of "_wIocp" workers.
// Every handle bound to the port, and every completion posted to it, carries the address of
// its handler routine as the completion key; the handler receives the OVERLAPPED that heads
// the operation's request record.
#pragma once
#include <cstdint>

struct _OVERLAPPED;
using CompletionHandler = unsigned long (*)(_OVERLAPPED* overlapped);

// Creates the port and its first worker (0x02085247 if the port cannot be created).
void IocpStart();
// Closes the port, waits for every worker to end and frees their records.
void IocpShutdown();
// Adds a worker unless another thread is adding one right now.
void IocpAddWorker();
// Binds a handle to the port with the handler as key; 0 or the Windows error code.
uint32_t IocpBind(void* handle, CompletionHandler handler);
// Queues a completion by hand (0x54378157 if it cannot be queued).
void IocpPost(CompletionHandler handler, _OVERLAPPED* overlapped, uint32_t bytes);

uint32_t IocpWorkerCount();
uint32_t IocpBusyCount();
