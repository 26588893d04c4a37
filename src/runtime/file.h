// wFile: a file handle whose reads and writes at explicit positions the calling thread waits
// for: overlapped operations completed on the completion port, or, opened direct, plain
// operations that complete on the calling thread.
#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

struct IoResult {
    uint32_t error;
    uint32_t bytes;
};

// How a wFile's operations complete.
enum class FileIo {
    Port,    // overlapped, bound to the completion port
    Direct,  // on the calling thread, without the port
};

class wFile {
public:
    wFile() = default;
    virtual ~wFile();
    wFile(const wFile&) = delete;
    wFile& operator=(const wFile&) = delete;

    // 0 or the Windows error code; 6 (ERROR_INVALID_HANDLE) when the object is already open.
    uint32_t Open(const std::wstring& path, bool read, bool write, bool shareDelete, uint32_t disposition,
                  FileIo io = FileIo::Port);
    IoResult Read(uint64_t position, void* buffer, uint32_t length);
    IoResult Write(uint64_t position, const void* buffer, uint32_t length);
    // All `length` bytes at `position`, in pieces of at most 1 GiB: 0, or the Windows error code
    // (38, ERROR_HANDLE_EOF, when a piece moved fewer bytes than asked).
    uint32_t ReadAll(uint64_t position, void* buffer, size_t length);
    uint32_t WriteAll(uint64_t position, const void* buffer, size_t length);
    // Closes once however often it is called.
    void Close();

    bool IsOpen() const { return handle.load() != nullptr; }
    void* Handle() const { return handle.load(); }
    const std::wstring& Name() const { return name; }

private:
    IoResult Issue(uint32_t kind, uint64_t position, void* buffer, uint32_t length);
    IoResult IssueDirect(uint32_t kind, uint64_t position, void* buffer, uint32_t length);
    uint32_t IssueAll(uint32_t kind, uint64_t position, void* buffer, size_t length);

    std::wstring name;
    FileIo mode = FileIo::Port;
    std::atomic<void*> handle{nullptr};
};
