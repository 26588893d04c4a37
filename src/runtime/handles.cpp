// The release calls behind the owners and guards of handles.h.
#include "runtime/handles.h"

#include <winsock2.h>
#include <windows.h>

static_assert(sizeof(CRITICAL_SECTION) <= 40 && alignof(CRITICAL_SECTION) <= 8, "CriticalSection storage too small");
static_assert(sizeof(SRWLOCK) == sizeof(void*), "SrwLock storage differs from SRWLOCK");
static_assert(SocketKind::kNone == INVALID_SOCKET, "SocketKind's none differs from INVALID_SOCKET");

namespace {

CRITICAL_SECTION* Native(unsigned char* storage) { return reinterpret_cast<CRITICAL_SECTION*>(storage); }
SRWLOCK* Native(void** storage) { return reinterpret_cast<SRWLOCK*>(storage); }

}  // namespace

void HandleKind::Close(Value handle) { CloseHandle(handle); }
void SocketKind::Close(Value socket) { closesocket(static_cast<SOCKET>(socket)); }
void FindKind::Close(Value find) { FindClose(find); }

CriticalSection::CriticalSection(uint32_t spinCount)
{
    InitializeCriticalSectionAndSpinCount(Native(storage), spinCount);
}

CriticalSection::~CriticalSection() { DeleteCriticalSection(Native(storage)); }

CriticalSectionLock::CriticalSectionLock(CriticalSection& section) : section(&section)
{
    EnterCriticalSection(Native(section.storage));
}

CriticalSectionLock::CriticalSectionLock(CriticalSection& section, TryOnly)
    : section(TryEnterCriticalSection(Native(section.storage)) ? &section : nullptr)
{
}

CriticalSectionLock::~CriticalSectionLock()
{
    if (section)
        LeaveCriticalSection(Native(section->storage));
}

ExclusiveLock::ExclusiveLock(SrwLock& lock) : lock(lock) { AcquireSRWLockExclusive(Native(&lock.storage)); }
ExclusiveLock::~ExclusiveLock() { ReleaseSRWLockExclusive(Native(&lock.storage)); }

SharedLock::SharedLock(SrwLock& lock) : lock(lock) { AcquireSRWLockShared(Native(&lock.storage)); }
SharedLock::~SharedLock() { ReleaseSRWLockShared(Native(&lock.storage)); }
