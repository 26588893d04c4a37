// IoRequest: the pooled record of one overlapped operation; its OVERLAPPED comes first so that
// a completion handler finds the record from the pointer it is given.
#pragma once
#include <windows.h>
#include <atomic>
#include <cstdint>

enum IoBufferOwnership : uint32_t {
    kBufferCallerOwned = 0,
    kBufferHeap = 1,
    kBufferPool = 2,
};

enum IoKind : uint32_t {
    kIoRead = 1,
    kIoWrite = 2,
    kIoReceiveFrom = 21,
    kIoSendTo = 23,
};

struct IoRequest {
    OVERLAPPED overlapped;
    void* context;
    void* buffer;
    void (*callback)(IoRequest* request);
    uint64_t position;
    void (*followUp)(uint32_t error, uint32_t bytes);
    void* owner;
    uint32_t ownership;
    uint32_t length;
    uint32_t error;
    std::atomic<long> refCount;
    uint32_t requested;
    uint32_t transferred;
    uint32_t kind;
    // Datagram operations: the peer's IPv4 address and the length the system reports for it.
    int32_t addressLength;
    unsigned char address[16];
};

constexpr unsigned kIoRequestClass = 7;
static_assert(sizeof(IoRequest) <= (1u << kIoRequestClass), "IoRequest must fit its pool class");

// Takes a zeroed request from the pool.
IoRequest* NewIoRequest();
// The completion handler of every IoRequest: runs the callback, releases the buffer by its
// ownership, runs the follow-up and returns the record to the pool once the last holder is done.
unsigned long CompleteIoRequest(_OVERLAPPED* overlapped);
