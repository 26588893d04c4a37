// The decoder tests' frames, made at build time by make_frames.py: beside the test program under
// Windows, in the folder VEY_ZSTD_FRAMES names in the native build. Also the memory sink and
// history the tests decode with.
#pragma once
#include "zstd/decoder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#endif

using Bytes = std::vector<uint8_t>;

inline std::string FramesFolder()
{
#ifdef _WIN32
    char path[MAX_PATH];
    DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string folder(path, length);
    return folder.substr(0, folder.find_last_of('\\') + 1) + "frames\\";
#else
    const char* folder = std::getenv("VEY_ZSTD_FRAMES");
    return std::string(folder ? folder : "frames") + "/";
#endif
}

// The file's bytes; fails the test when it cannot be read.
inline Bytes FrameFile(const std::string& name)
{
    std::ifstream in(FramesFolder() + name, std::ios::binary);
    EXPECT_TRUE(in.good()) << "cannot open " << FramesFolder() + name;
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Keeps the output in memory and counts the reads back that the decoder makes.
class MemorySink : public ZstdSink {
public:
    bool Write(const void* data, size_t length) override
    {
        if (refuseWrites)
            return false;
        const uint8_t* bytes = static_cast<const uint8_t*>(data);
        output.insert(output.end(), bytes, bytes + length);
        return true;
    }
    bool ReadAt(uint64_t position, void* buffer, size_t length) override
    {
        ++reads;
        if (position > output.size() || length > output.size() - position)
            return false;
        std::memcpy(buffer, output.data() + position, length);
        return true;
    }

    Bytes output;
    size_t reads = 0;
    bool refuseWrites = false;
};

// An old file in memory, offered whole as a view (as a mapped file is) when `inView`.
class MemoryHistory : public HistoryReader {
public:
    explicit MemoryHistory(Bytes bytes, bool inView = false) : bytes(std::move(bytes)), inView(inView) {}
    bool ReadAt(uint64_t position, void* buffer, size_t length) override
    {
        ++reads;
        if (position > bytes.size() || length > bytes.size() - position)
            return false;
        std::memcpy(buffer, bytes.data() + position, length);
        return true;
    }
    const uint8_t* View() override { return inView ? bytes.data() : nullptr; }

    Bytes bytes;
    bool inView;
    size_t reads = 0;
};

struct Decoded {
    ZstdError error;  // of the first failing Push, or of Finish
    Bytes output;
    size_t sinkReads;
    size_t memory;  // the decoder's MemoryHeld() at the end
};

// Pushes `frame` in chunks of `chunk` bytes (0: whole), then finishes.
inline Decoded Decode(const Bytes& frame, size_t chunk = 0, HistoryReader* prefix = nullptr, uint64_t prefixSize = 0,
                      ZstdLimits limits = ZstdLimits())
{
    MemorySink sink;
    ZstdDecoder decoder(limits, sink, prefix, prefixSize);
    ZstdError error = ZstdError::None;
    size_t step = chunk ? chunk : frame.size();
    for (size_t at = 0; at < frame.size() && error == ZstdError::None; at += step)
        error = decoder.Push(frame.data() + at, frame.size() - at < step ? frame.size() - at : step);
    if (error == ZstdError::None)
        error = decoder.Finish();
    EXPECT_EQ(decoder.Written(), sink.output.size());
    return {error, std::move(sink.output), sink.reads, decoder.MemoryHeld()};
}
