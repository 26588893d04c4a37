// The decoder's sink and history over files: FileSink appends the output to a file opened for
// reading and writing and reads it back; MappedHistory serves the old file of a patch from a
// read-only mapping, which the system pages in and out without charging it to the process.
#pragma once
#include "runtime/file.h"
#include "runtime/handles.h"
#include "zstd/decoder.h"

#include <cstdint>
#include <string>

class FileSink : public ZstdSink {
public:
    // `file` is open with read and write access; the output goes at `start` onwards.
    explicit FileSink(wFile& file, uint64_t start = 0) : file(file), start(start) {}

    bool Write(const void* data, size_t length) override;
    bool ReadAt(uint64_t position, void* buffer, size_t length) override;

    // The Windows error code of the last operation that failed, 0 when none did.
    uint32_t LastError() const { return lastError; }

private:
    bool Transfer(bool write, uint64_t position, void* buffer, size_t length);

    wFile& file;
    uint64_t start;
    uint64_t written = 0;
    uint32_t lastError = 0;
};

class MappedHistory : public HistoryReader {
public:
    MappedHistory() = default;
    ~MappedHistory() override;
    MappedHistory(const MappedHistory&) = delete;
    MappedHistory& operator=(const MappedHistory&) = delete;

    // Maps the whole file read-only: 0, or the Windows error code. An empty file maps nothing.
    uint32_t Open(const std::wstring& path);
    uint64_t Size() const { return size; }

    bool ReadAt(uint64_t position, void* buffer, size_t length) override;
    const uint8_t* View() override { return view; }

private:
    UniqueHandle mapping;
    const uint8_t* view = nullptr;
    uint64_t size = 0;
};
