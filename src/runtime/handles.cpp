// The release calls behind the owners and guards of handles.h.
#include "runtime/handles.h"

#include <winsock2.h>
#include <windows.h>

static_assert(sizeof(CRITICAL_SECTION) <= 40 && alignof(CRITICAL_SECTION) <= 8, "CriticalSection storage too small");
static_assert(sizeof(SRWLOCK) == sizeof(void*), "SrwLock storage differs from SRWLOCK");
static_assert(sizeof(CONDITION_VARIABLE) == sizeof(void*), "ConditionVariable storage differs from CONDITION_VARIABLE");
static_assert(SocketKind::kNone == INVALID_SOCKET, "SocketKind's none differs from INVALID_SOCKET");

namespace {

CRITICAL_SECTION* Native(unsigned char* storage) { return reinterpret_cast<CRITICAL_SECTION*>(storage); }
SRWLOCK* Native(void** storage) { return reinterpret_cast<SRWLOCK*>(storage); }
CONDITION_VARIABLE* NativeCondition(void** storage) { return reinterpret_cast<CONDITION_VARIABLE*>(storage); }

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

template <bool kShared>
SrwLockGuard<kShared>::SrwLockGuard(SrwLock& lock) : lock(lock)
{
    if (kShared)
        AcquireSRWLockShared(Native(&lock.storage));
    else
        AcquireSRWLockExclusive(Native(&lock.storage));
}

template <bool kShared>
SrwLockGuard<kShared>::~SrwLockGuard()
{
    if (kShared)
        ReleaseSRWLockShared(Native(&lock.storage));
    else
        ReleaseSRWLockExclusive(Native(&lock.storage));
}

template class SrwLockGuard<false>;
template class SrwLockGuard<true>;

void ConditionVariable::Wait(SrwLock& lock)
{
    SleepConditionVariableSRW(NativeCondition(&storage), Native(&lock.storage), INFINITE, 0);
}

void ConditionVariable::WakeAll() { WakeAllConditionVariable(NativeCondition(&storage)); }
