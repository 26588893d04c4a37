// Owners of Win32 handles and sockets, and the program's two kinds of lock with their scoped
// guards: every handle, socket and lock is given back here and nowhere else. Values are held as
// the plain pointers and integers they are, and locks in storage of the system's size (checked in
// handles.cpp), so this header needs no windows.h.
#pragma once
#include <cstdint>

// Holds one value of a resource kind and closes it once: when the owner ends or takes another
// value. Moved, never copied; Release() hands the value on without closing it.
template <typename Kind>
class Owned {
public:
    using Value = typename Kind::Value;

    Owned() = default;
    explicit Owned(Value value) : value(value) {}
    ~Owned() { Reset(); }
    Owned(Owned&& other) noexcept : value(other.Release()) {}
    Owned& operator=(Owned&& other) noexcept
    {
        Reset(other.Release());
        return *this;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    Value Get() const { return value; }
    explicit operator bool() const { return Kind::IsValid(value); }
    Value Release()
    {
        Value kept = value;
        value = Kind::kNone;
        return kept;
    }
    // Closes the value held, if any, and holds `next` instead.
    void Reset(Value next = Kind::kNone)
    {
        Value old = value;
        value = next;
        if (Kind::IsValid(old))
            Kind::Close(old);
    }

private:
    Value value = Kind::kNone;
};

// Handles closed with CloseHandle: events, threads, processes, files, pipes, ports and toolhelp
// snapshots. Null and INVALID_HANDLE_VALUE both mean none, since the system fails with either.
struct HandleKind {
    using Value = void*;
    static constexpr Value kNone = nullptr;
    static bool IsValid(Value handle) { return handle && reinterpret_cast<intptr_t>(handle) != -1; }
    static void Close(Value handle);
};

// Sockets closed with closesocket; INVALID_SOCKET means none.
struct SocketKind {
    using Value = uintptr_t;
    static constexpr Value kNone = ~Value(0);
    static bool IsValid(Value socket) { return socket != kNone; }
    static void Close(Value socket);
};

// Searches closed with FindClose; INVALID_HANDLE_VALUE (and null) mean none.
struct FindKind {
    using Value = void*;
    static constexpr Value kNone = nullptr;
    static bool IsValid(Value find) { return HandleKind::IsValid(find); }
    static void Close(Value find);
};

using UniqueHandle = Owned<HandleKind>;
using UniqueSocket = Owned<SocketKind>;
using UniqueFind = Owned<FindKind>;

// A critical section: re-entrant on one thread, spinning `spinCount` times before it waits.
class CriticalSection {
public:
    explicit CriticalSection(uint32_t spinCount = 0);
    ~CriticalSection();
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

private:
    friend class CriticalSectionLock;
    alignas(8) unsigned char storage[40];  // a CRITICAL_SECTION
};

// Holds a critical section for its scope.
class CriticalSectionLock {
public:
    struct TryOnly {};

    explicit CriticalSectionLock(CriticalSection& section);
    // Takes the section only if no other thread holds it; Held() tells whether it did.
    CriticalSectionLock(CriticalSection& section, TryOnly);
    ~CriticalSectionLock();
    CriticalSectionLock(const CriticalSectionLock&) = delete;
    CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;

    bool Held() const { return section != nullptr; }

private:
    CriticalSection* section;
};

// A slim reader/writer lock. It needs no set-up or tear-down, so a global one is ready before
// any code runs.
class SrwLock {
public:
    constexpr SrwLock() = default;
    SrwLock(const SrwLock&) = delete;
    SrwLock& operator=(const SrwLock&) = delete;

private:
    template <bool kShared>
    friend class SrwLockGuard;
    friend class ConditionVariable;
    void* storage = nullptr;  // an SRWLOCK; all zero is its initial state
};

// Holds an SRW lock for its scope: alone, or shared with other readers.
template <bool kShared>
class SrwLockGuard {
public:
    explicit SrwLockGuard(SrwLock& lock);
    ~SrwLockGuard();
    SrwLockGuard(const SrwLockGuard&) = delete;
    SrwLockGuard& operator=(const SrwLockGuard&) = delete;

private:
    SrwLock& lock;
};

using ExclusiveLock = SrwLockGuard<false>;
using SharedLock = SrwLockGuard<true>;

// A condition variable over an SRW lock, for threads that hand work to each other: a waiter
// sleeps in the process, without calls into the system while the other side is quick.
class ConditionVariable {
public:
    constexpr ConditionVariable() = default;
    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;

    // Releases `lock`, which the caller holds exclusively, until woken, and takes it again.
    void Wait(SrwLock& lock);
    void WakeAll();

private:
    void* storage = nullptr;  // a CONDITION_VARIABLE; all zero is its initial state
};
