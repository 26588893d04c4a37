// Decodes a Zstandard file into a new file the way the updater decodes a download: the input
// read in 1 MiB chunks and pushed, the output written through FileSink, the old file of a patch
// (third argument) mapped through MappedHistory. Prints one line:
//   decoded BYTES bytes in MS ms; decoder memory HELD; private peak PEAK above START
// where PEAK is the process's peak private bytes (PeakPagefileUsage) less START, the private
// bytes just before the decoder was made; or "error: TEXT" and exits 1.
#include "zstd/decoder.h"
#include "zstd/file_io.h"

#include <windows.h>
#include <psapi.h>

#include <cstdio>
#include <memory>

namespace {

uint64_t PrivateBytes(bool peak)
{
    PROCESS_MEMORY_COUNTERS_EX counters{};
    counters.cb = sizeof(counters);
    K32GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof(counters));
    return peak ? counters.PeakPagefileUsage : counters.PrivateUsage;
}

int Fail(const char* what, uint32_t code)
{
    std::printf("error: %s (0x%08X)\n", what, code);
    return 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 3 || argc > 4) {
        std::printf("usage: zstd_apply FRAME OUTPUT [OLD]\n");
        return 2;
    }
    wFile input;
    if (uint32_t error = input.Open(argv[1], true, false, false, OPEN_EXISTING, FileIo::Direct))
        return Fail("cannot open the input", error);
    wFile output;
    if (uint32_t error = output.Open(argv[2], true, true, false, CREATE_ALWAYS, FileIo::Direct))
        return Fail("cannot create the output", error);
    MappedHistory old;
    if (argc == 4) {
        if (uint32_t error = old.Open(argv[3]))
            return Fail("cannot map the old file", error);
    }
    constexpr uint32_t kChunk = 1 << 20;
    std::unique_ptr<uint8_t[]> chunk(new uint8_t[kChunk]);
    std::fill(chunk.get(), chunk.get() + kChunk, 0);
    uint64_t start = PrivateBytes(false);
    LARGE_INTEGER frequency, begin, end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&begin);
    FileSink sink(output);
    ZstdDecoder decoder(ZstdLimits(), sink, argc == 4 ? &old : nullptr, old.Size());
    ZstdError error = ZstdError::None;
    for (uint64_t position = 0; error == ZstdError::None;) {
        IoResult read = input.Read(position, chunk.get(), kChunk);
        if (read.error && read.error != ERROR_HANDLE_EOF)
            return Fail("cannot read the input", read.error);
        if (read.bytes == 0)
            break;
        error = decoder.Push(chunk.get(), read.bytes);
        position += read.bytes;
    }
    if (error == ZstdError::None)
        error = decoder.Finish();
    QueryPerformanceCounter(&end);
    if (error != ZstdError::None) {
        std::printf("error: %s\n", ZstdErrorText(error));
        return 1;
    }
    uint64_t peak = PrivateBytes(true);
    std::printf("decoded %llu bytes in %llu ms; decoder memory %llu; private peak %llu above %llu\n",
                static_cast<unsigned long long>(decoder.Written()),
                static_cast<unsigned long long>((end.QuadPart - begin.QuadPart) * 1000 / frequency.QuadPart),
                static_cast<unsigned long long>(decoder.MemoryHeld()),
                static_cast<unsigned long long>(peak > start ? peak - start : 0), static_cast<unsigned long long>(start));
    return 0;
}
