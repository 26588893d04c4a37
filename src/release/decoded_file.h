// The staging file a decoding writes: at increasing offsets, read back through a growing view
// where a match reaches beyond the decoder's memory. It is never held in memory whole.
#pragma once
#include "runtime/file.h"
#include "zstd/decoder.h"
#include "zstd/file_io.h"

#include <cstddef>
#include <cstdint>
#include <string>

class WrittenBody;

// The staging file as the decoder's output; every byte written is also handed to `digest`.
class StagingOutput final : public ZstdSink {
public:
    explicit StagingOutput(WrittenBody& digest) : digest(digest) {}

    // Creates the file anew: 0 or the Windows error code.
    uint32_t Create(const std::wstring& path);
    bool Write(const void* data, size_t length) override;
    bool ReadAt(uint64_t position, void* buffer, size_t length) override;

private:
    WrittenBody& digest;
    wFile file;
    GrowingView view;  // after `file`: unmapped before the file closes
    uint64_t size = 0;
};
