// wFile: overlapped file I/O completed on the port, waited for by the caller on an event that
// each thread makes once and reuses; or, opened direct, positioned I/O on the calling thread.
#include "runtime/file.h"
#include "runtime/fatal.h"
#include "runtime/handles.h"
#include "runtime/iocp.h"
#include "runtime/io_request.h"

namespace {

struct Waiter {
    uint32_t error;
    uint32_t bytes;
    HANDLE event;
};

// Auto-reset, so the wait for an operation consumes the one signal that its completion gives.
// Made once per thread: an event made and closed for every operation costs two more trips to
// the system (to Wine's server, under Wine) per read or write.
HANDLE WaitEvent()
{
    thread_local UniqueHandle event;
    if (!event)
        event.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    return event.Get();
}

void SignalWaiter(IoRequest* request)
{
    auto* waiter = static_cast<Waiter*>(request->context);
    waiter->error = request->error;
    waiter->bytes = request->transferred;
    SetEvent(waiter->event);
}

}  // namespace

wFile::~wFile()
{
    Close();
}

uint32_t wFile::Open(const std::wstring& path, bool read, bool write, bool shareDelete, uint32_t disposition,
                     FileIo io)
{
    DWORD access = (read ? GENERIC_READ : 0) | (write ? GENERIC_WRITE : 0);
    DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | (shareDelete ? FILE_SHARE_DELETE : 0);
    DWORD flags = FILE_ATTRIBUTE_NORMAL | (io == FileIo::Port ? FILE_FLAG_OVERLAPPED : 0);
    UniqueHandle opened(CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr));
    if (!opened)
        return GetLastError();
    if (io == FileIo::Port) {
        if (uint32_t error = IocpBind(opened.Get(), CompleteIoRequest))
            return error;
    }
    void* expected = nullptr;
    if (!handle.compare_exchange_strong(expected, opened.Get()))
        return ERROR_INVALID_HANDLE;
    opened.Release();
    name = path;
    mode = io;
    return 0;
}

IoResult wFile::Read(uint64_t position, void* buffer, uint32_t length)
{
    return Issue(kIoRead, position, buffer, length);
}

IoResult wFile::Write(uint64_t position, const void* buffer, uint32_t length)
{
    return Issue(kIoWrite, position, const_cast<void*>(buffer), length);
}

uint32_t wFile::ReadAll(uint64_t position, void* buffer, size_t length)
{
    return IssueAll(kIoRead, position, buffer, length);
}

uint32_t wFile::WriteAll(uint64_t position, const void* buffer, size_t length)
{
    return IssueAll(kIoWrite, position, const_cast<void*>(buffer), length);
}

uint32_t wFile::IssueAll(uint32_t kind, uint64_t position, void* buffer, size_t length)
{
    constexpr size_t kMaxPiece = size_t(1) << 30;
    auto* bytes = static_cast<char*>(buffer);
    while (length > 0) {
        uint32_t piece = static_cast<uint32_t>(length < kMaxPiece ? length : kMaxPiece);
        IoResult result = Issue(kind, position, bytes, piece);
        if (result.error != 0)
            return result.error;
        if (result.bytes != piece)
            return ERROR_HANDLE_EOF;
        position += piece;
        bytes += piece;
        length -= piece;
    }
    return 0;
}

IoResult wFile::Issue(uint32_t kind, uint64_t position, void* buffer, uint32_t length)
{
    if (mode == FileIo::Direct)
        return IssueDirect(kind, position, buffer, length);
    Waiter waiter{0, 0, WaitEvent()};
    IoRequest* request = NewIoRequest();
    request->overlapped.Offset = static_cast<DWORD>(position);
    request->overlapped.OffsetHigh = static_cast<DWORD>(position >> 32);
    request->position = position;
    request->buffer = buffer;
    request->length = length;
    request->requested = length;
    request->ownership = kBufferCallerOwned;
    request->refCount = 1;
    request->owner = this;
    request->kind = kind;
    request->context = &waiter;
    request->callback = SignalWaiter;

    HANDLE file = handle.load();
    BOOL ok = kind == kIoRead ? ReadFile(file, buffer, length, nullptr, &request->overlapped)
                              : WriteFile(file, buffer, length, nullptr, &request->overlapped);
    if (!ok) {
        DWORD error = GetLastError();
        if (error != ERROR_IO_PENDING) {
            // Failures end on the port too, so that every request is finished in one place.
            request->error = error;
            IocpPost(CompleteIoRequest, &request->overlapped, 0);
        }
    }
    WaitForSingleObject(waiter.event, INFINITE);
    return IoResult{waiter.error, waiter.bytes};
}

// The position goes in an OVERLAPPED as for the port, but the handle is synchronous: the call
// returns when the operation is done, with no thread to wake.
IoResult wFile::IssueDirect(uint32_t kind, uint64_t position, void* buffer, uint32_t length)
{
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(position);
    at.OffsetHigh = static_cast<DWORD>(position >> 32);
    DWORD done = 0;
    HANDLE file = handle.load();
    BOOL ok = kind == kIoRead ? ReadFile(file, buffer, length, &done, &at) : WriteFile(file, buffer, length, &done, &at);
    return IoResult{ok ? 0u : static_cast<uint32_t>(GetLastError()), done};
}

void wFile::Close()
{
    UniqueHandle open(handle.exchange(nullptr));
    if (open)
        name.clear();
}
