// The decoder's sink and history over files: FileSink appends the output to a file opened for
// reading and writing and reads it back through a GrowingView; MappedHistory serves the old file
// of a patch from a read-only mapping. Mapped pages belong to the file: the system pages them in
// and out without charging them to the process.
#pragma once
#include "runtime/file.h"
#include "runtime/handles.h"
#include "zstd/decoder.h"

#include <cstdint>
#include <string>

// A read-only view of a file that is still being appended to, mapped again when a read reaches
// past what the last mapping covered. A long-window frame reads its own earlier output back in
// hundreds of thousands of short pieces; through a view each costs no call into the system, and
// since the decoder holds the most recent bytes itself, the file is mapped again only after it
// has grown by more than that.
class GrowingView {
public:
    GrowingView() = default;
    ~GrowingView() { Close(); }
    GrowingView(const GrowingView&) = delete;
    GrowingView& operator=(const GrowingView&) = delete;

    // Copies `length` bytes at `position` of `file`, whose first `written` bytes hold what was
    // written; false when they cannot be mapped.
    bool Read(const wFile& file, uint64_t written, uint64_t position, void* buffer, size_t length);
    // Lets the file go; a file that is mapped can be neither truncated nor replaced.
    void Close();

private:
    UniqueHandle mapping;
    const uint8_t* view = nullptr;
    uint64_t mapped = 0;
};

class FileSink : public ZstdSink {
public:
    // `file` is open with read and write access; the output goes at `start` onwards.
    explicit FileSink(wFile& file, uint64_t start = 0) : file(file), start(start) {}

    bool Write(const void* data, size_t length) override;
    bool ReadAt(uint64_t position, void* buffer, size_t length) override;

    // The Windows error code of the last operation that failed, 0 when none did.
    uint32_t LastError() const { return lastError; }

private:
    wFile& file;
    uint64_t start;
    uint64_t written = 0;
    uint32_t lastError = 0;
    GrowingView view;
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
