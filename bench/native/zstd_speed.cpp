// Decode throughput of one Zstandard file in memory: ours (pushed in 1 MiB chunks, the output
// copied into one buffer as a sink would write it) against libzstd in one call into that buffer
// and libzstd streaming (1 MiB in, 1 MiB out, copied into the buffer). With an old file, it is
// the prefix of every frame (a patch). Prints one line per decoder: the median MB/s of the runs
// by wall time and by the process's CPU time (user and system), and the memory the decoder held.
//   zstd_speed FRAME [OLD] [RUNS]
#include "zstd/decoder.h"

#include <zstd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Load(const char* path)
{
    FILE* file = std::fopen(path, "rb");
    if (!file) {
        std::perror(path);
        std::exit(2);
    }
    Bytes bytes;
    uint8_t buffer[1 << 16];
    for (size_t read; (read = std::fread(buffer, 1, sizeof(buffer), file)) > 0;)
        bytes.insert(bytes.end(), buffer, buffer + read);
    std::fclose(file);
    return bytes;
}

class BufferSink : public ZstdSink {
public:
    explicit BufferSink(Bytes& out) : out(out) {}
    bool Write(const void* data, size_t length) override
    {
        if (length > out.size() - written)
            return false;
        std::memcpy(out.data() + written, data, length);
        written += length;
        return true;
    }
    bool ReadAt(uint64_t position, void* buffer, size_t length) override
    {
        if (position > written || length > written - position)
            return false;
        std::memcpy(buffer, out.data() + position, length);
        return true;
    }
    size_t written = 0;

private:
    Bytes& out;
};

class SpanHistory : public HistoryReader {
public:
    explicit SpanHistory(const Bytes& bytes) : bytes(bytes) {}
    bool ReadAt(uint64_t position, void* buffer, size_t length) override
    {
        if (position > bytes.size() || length > bytes.size() - position)
            return false;
        std::memcpy(buffer, bytes.data() + position, length);
        return true;
    }
    // As a mapped old file gives it.
    const uint8_t* View() override { return bytes.data(); }

private:
    const Bytes& bytes;
};

constexpr size_t kChunk = 1 << 20;

struct Timing {
    double wall;
    double cpu;
};

double CpuSeconds()
{
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return now.tv_sec + now.tv_nsec / 1e9;
}

Timing Seconds(const std::function<void()>& work)
{
    auto start = std::chrono::steady_clock::now();
    double cpu = CpuSeconds();
    work();
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), CpuSeconds() - cpu};
}

void Fail(const char* what)
{
    std::fprintf(stderr, "zstd_speed: %s\n", what);
    std::exit(1);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: zstd_speed FRAME [OLD] [RUNS]\n");
        return 2;
    }
    Bytes frame = Load(argv[1]);
    Bytes old = argc > 2 && std::strcmp(argv[2], "-") != 0 ? Load(argv[2]) : Bytes();
    bool patch = !old.empty();
    int runs = argc > 3 ? std::atoi(argv[3]) : 5;

    ZSTD_DCtx* context = ZSTD_createDCtx();
    ZSTD_DCtx_setParameter(context, ZSTD_d_windowLogMax, 31);
    unsigned long long size = ZSTD_getFrameContentSize(frame.data(), frame.size());
    Bytes expected;
    {
        // The output's size: decoded once by libzstd streaming.
        ZSTD_DCtx_reset(context, ZSTD_reset_session_only);
        if (patch)
            ZSTD_DCtx_refPrefix(context, old.data(), old.size());
        Bytes scratch(kChunk);
        ZSTD_inBuffer in{frame.data(), frame.size(), 0};
        while (in.pos < in.size) {
            ZSTD_outBuffer out{scratch.data(), scratch.size(), 0};
            size_t result = ZSTD_decompressStream(context, &out, &in);
            if (ZSTD_isError(result))
                Fail(ZSTD_getErrorName(result));
            expected.insert(expected.end(), scratch.begin(), scratch.begin() + out.pos);
        }
    }
    (void)size;
    Bytes output(expected.size());
    std::vector<Timing> ours, oneCall, streaming;
    size_t oursMemory = 0, oneMemory = 0, streamingMemory = 0;
    for (int run = 0; run < runs; ++run) {
        std::fill(output.begin(), output.end(), 0);
        ours.push_back(Seconds([&] {
            BufferSink sink(output);
            SpanHistory history(old);
            ZstdLimits limits;
            ZstdDecoder decoder(limits, sink, patch ? &history : nullptr, old.size());
            for (size_t at = 0; at < frame.size(); at += kChunk)
                if (decoder.Push(frame.data() + at, std::min(kChunk, frame.size() - at)) != ZstdError::None)
                    Fail("ours refused the input");
            if (decoder.Finish() != ZstdError::None)
                Fail("ours refused the input's end");
            oursMemory = decoder.MemoryHeld();
        }));
        if (output != expected)
            Fail("ours decoded other bytes");
        std::fill(output.begin(), output.end(), 0);
        oneCall.push_back(Seconds([&] {
            ZSTD_DCtx_reset(context, ZSTD_reset_session_only);
            if (patch)
                ZSTD_DCtx_refPrefix(context, old.data(), old.size());
            size_t result = ZSTD_decompressDCtx(context, output.data(), output.size(), frame.data(), frame.size());
            if (ZSTD_isError(result))
                Fail(ZSTD_getErrorName(result));
            oneMemory = ZSTD_sizeof_DCtx(context);
        }));
        if (output != expected)
            Fail("libzstd decoded other bytes");
        std::fill(output.begin(), output.end(), 0);
        streaming.push_back(Seconds([&] {
            ZSTD_DCtx_reset(context, ZSTD_reset_session_only);
            if (patch)
                ZSTD_DCtx_refPrefix(context, old.data(), old.size());
            Bytes scratch(kChunk);
            size_t written = 0;
            ZSTD_inBuffer in{frame.data(), 0, 0};
            for (size_t fed = 0; fed < frame.size() || in.pos < in.size;) {
                if (in.pos == in.size) {
                    in.src = frame.data() + fed;
                    in.size = std::min(kChunk, frame.size() - fed);
                    in.pos = 0;
                    fed += in.size;
                }
                ZSTD_outBuffer out{scratch.data(), scratch.size(), 0};
                size_t result = ZSTD_decompressStream(context, &out, &in);
                if (ZSTD_isError(result))
                    Fail(ZSTD_getErrorName(result));
                std::memcpy(output.data() + written, scratch.data(), out.pos);
                written += out.pos;
            }
            streamingMemory = ZSTD_sizeof_DCtx(context);
        }));
        if (output != expected)
            Fail("libzstd streaming decoded other bytes");
    }
    double megabytes = expected.size() / 1e6;
    // MB/s of the median wall time and of the median CPU time.
    auto rates = [megabytes](const std::vector<Timing>& timings) {
        std::vector<double> wall, cpu;
        for (const Timing& timing : timings) {
            wall.push_back(timing.wall);
            cpu.push_back(timing.cpu);
        }
        std::sort(wall.begin(), wall.end());
        std::sort(cpu.begin(), cpu.end());
        return std::make_pair(megabytes / wall[wall.size() / 2], megabytes / cpu[cpu.size() / 2]);
    };
    auto [oursWall, oursCpu] = rates(ours);
    auto [oneWall, oneCpu] = rates(oneCall);
    auto [streamWall, streamCpu] = rates(streaming);
    std::printf("output %zu bytes, %d runs\n", expected.size(), runs);
    std::printf("ours: %.0f MB/s, cpu %.0f MB/s, memory %zu\n", oursWall, oursCpu, oursMemory);
    std::printf("libzstd one call: %.0f MB/s, cpu %.0f MB/s, memory %zu\n", oneWall, oneCpu, oneMemory);
    std::printf("libzstd streaming: %.0f MB/s, cpu %.0f MB/s, memory %zu\n", streamWall, streamCpu, streamingMemory);
    ZSTD_freeDCtx(context);
    return 0;
}
