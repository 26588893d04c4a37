// The comparison both Zstandard fuzz targets make: the same input decoded by ours (pushed in
// pieces) and by Debian's libzstd (one call, the oracle); both give the same bytes or both
// refuse. libzstd 1.5.4 is known wrong in a few cases, where ours is right and the two may
// differ: it decodes a repeat offset of 0 as 1, Huffman weights whose stream ends before its two
// states, bytes left after a section of no sequences, set reserved bits in the sequences modes,
// Huffman streams (with some tables) without their end marker or with more or fewer bits than
// their symbols, sequences that read past the start of their stream or leave bits of it, and
// (with an old file before the frame) a compressed block that decodes to more than 128 KiB; and
// it refuses a count of no sequences written in the two-byte form.
#pragma once
#include "zstd/decoder.h"

#include <zstd.h>
#include <zstd_errors.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace fuzz_zstd {

using Bytes = std::vector<uint8_t>;

// Output allowed per frame (ours) and in all (libzstd's buffer).
constexpr size_t kOutputMax = size_t(1) << 20;

class VectorSink : public ZstdSink {
public:
    bool Write(const void* data, size_t length) override
    {
        const uint8_t* bytes = static_cast<const uint8_t*>(data);
        output.insert(output.end(), bytes, bytes + length);
        return true;
    }
    bool ReadAt(uint64_t position, void* buffer, size_t length) override
    {
        if (position > output.size() || length > output.size() - position)
            return false;
        std::memcpy(buffer, output.data() + position, length);
        return true;
    }
    Bytes output;
};

class SpanHistory : public HistoryReader {
public:
    SpanHistory(const uint8_t* data, size_t size) : data(data), size(size) {}
    bool ReadAt(uint64_t position, void* buffer, size_t length) override
    {
        if (position > size || length > size - position)
            return false;
        std::memcpy(buffer, data + position, length);
        return true;
    }
    const uint8_t* View() override { return data; }

private:
    const uint8_t* data;
    size_t size;
};

inline ZstdError DecodeOurs(const uint8_t* data, size_t size, size_t chunk, const uint8_t* prefix, size_t prefixSize,
                            Bytes& output)
{
    ZstdLimits limits;
    limits.maxWindow = (uint64_t(1) << 31) + 7 * (uint64_t(1) << 28);  // all libzstd accepts
    limits.maxContent = kOutputMax;
    VectorSink sink;
    SpanHistory history(prefix, prefixSize);
    ZstdDecoder decoder(limits, sink, prefix ? &history : nullptr, prefixSize);
    ZstdError error = ZstdError::None;
    for (size_t at = 0; at < size && error == ZstdError::None; at += chunk)
        error = decoder.Push(data + at, size - at < chunk ? size - at : chunk);
    if (error == ZstdError::None)
        error = decoder.Finish();
    if (decoder.Written() != sink.output.size() || decoder.MemoryHeld() > (size_t(9) << 20)) {
        std::fprintf(stderr, "zstd: %zu bytes written, %zu reported, %zu bytes of memory\n", sink.output.size(),
                     static_cast<size_t>(decoder.Written()), decoder.MemoryHeld());
        std::abort();
    }
    output.swap(sink.output);
    return error;
}

// Walks the input's frames and their blocks as far as their headers allow, handing each
// compressed block's content that lies whole in the input to `onBlock`. Gives the magic number
// that ended the walk when it is neither a frame's nor a skippable frame's (0 otherwise).
template <typename OnBlock>
uint32_t WalkFrames(const uint8_t* data, size_t size, OnBlock onBlock)
{
    size_t at = 0;
    auto le = [&](size_t from, size_t count) {
        uint64_t value = 0;
        for (size_t i = 0; i < count; ++i)
            value |= uint64_t(data[from + i]) << (8 * i);
        return value;
    };
    while (at + 4 <= size) {
        uint32_t magic = static_cast<uint32_t>(le(at, 4));
        at += 4;
        if ((magic & 0xFFFFFFF0) == 0x184D2A50) {
            if (at + 4 > size)
                return 0;
            at += 4 + le(at, 4);
            continue;
        }
        if (magic != 0xFD2FB528)
            return magic;
        if (at >= size)
            return 0;
        uint8_t descriptor = data[at];
        bool single = descriptor & 0x20;
        static const size_t kId[4] = {0, 1, 2, 4}, kSize[4] = {0, 2, 4, 8};
        size_t sizeBytes = (descriptor >> 6) == 0 ? (single ? 1 : 0) : kSize[descriptor >> 6];
        at += 1 + (single ? 0 : 1) + kId[descriptor & 3] + sizeBytes;
        for (bool last = false; !last;) {
            if (at + 3 > size)
                return 0;
            uint32_t header = static_cast<uint32_t>(le(at, 3));
            at += 3;
            last = header & 1;
            unsigned type = (header >> 1) & 3;
            size_t blockSize = header >> 3;
            if (type == 2 && at + blockSize <= size && blockSize > 0)
                onBlock(data + at, blockSize);
            at += type == 1 ? 1 : blockSize;
        }
        if (descriptor & 0x04)
            at += 4;
    }
    return 0;
}

// Whether a compressed block of the input counts its sequences as 0 in the two-byte form.
inline bool HasTwoByteZeroCount(const uint8_t* data, size_t size)
{
    bool found = false;
    WalkFrames(data, size, [&](const uint8_t* block, size_t blockSize) {
        auto le = [&](size_t count) {
            uint64_t value = 0;
            for (size_t i = 0; i < count && i < blockSize; ++i)
                value |= uint64_t(block[i]) << (8 * i);
            return value;
        };
        unsigned literalsType = block[0] & 3, format = (block[0] >> 2) & 3;
        size_t literals;
        if (literalsType < 2) {
            size_t header = format == 1 ? 2 : format == 3 ? 3 : 1;
            size_t count = header == 1 ? block[0] >> 3 : static_cast<size_t>(le(header) >> 4);
            literals = header + (literalsType == 0 ? count : 1);
        } else {
            size_t header = format < 2 ? 3 : format + 2;
            unsigned width = format < 2 ? 10 : format == 2 ? 14 : 18;
            literals = header + (blockSize >= header ? static_cast<size_t>((le(header) >> (4 + width)) & ((1u << width) - 1)) : blockSize);
        }
        if (literals + 2 <= blockSize && block[literals] == 0x80 && block[literals + 1] == 0)
            found = true;
    });
    return found;
}

// Whether the input's frames run into one of the format's early versions (magic numbers
// 0xFD2FB522 to 0xFD2FB527), which libzstd still reads and the decoder does not.
inline bool RunsIntoOldVersion(const uint8_t* data, size_t size)
{
    uint32_t magic = WalkFrames(data, size, [](const uint8_t*, size_t) {});
    return magic >= 0xFD2FB522 && magic <= 0xFD2FB527;
}

// Decodes with both and aborts when they disagree outside the known cases.
inline void Compare(const uint8_t* data, size_t size, size_t chunk, const uint8_t* prefix = nullptr, size_t prefixSize = 0)
{
    if (size == 0)
        return;
    Bytes ours;
    ZstdError error = DecodeOurs(data, size, chunk, prefix, prefixSize, ours);
    static ZSTD_DCtx* context = ZSTD_createDCtx();
    ZSTD_DCtx_reset(context, ZSTD_reset_session_and_parameters);
    if (prefix)
        ZSTD_DCtx_refPrefix(context, prefix, prefixSize);
    static Bytes theirs(kOutputMax);
    size_t result = ZSTD_decompressDCtx(context, theirs.data(), theirs.size(), data, size);
    bool theirsOk = !ZSTD_isError(result);
    if (error == ZstdError::None && theirsOk) {
        if (result != ours.size() || (result && std::memcmp(ours.data(), theirs.data(), result) != 0)) {
            std::fprintf(stderr, "zstd: both decode, to different bytes (%zu and %zu)\n", ours.size(), result);
            std::abort();
        }
        return;
    }
    if (error != ZstdError::None && !theirsOk)
        return;
    if (error != ZstdError::None) {
        if (error == ZstdError::ZeroOffset || error == ZstdError::HuffmanStates || error == ZstdError::ExtraBytes ||
            error == ZstdError::ReservedBits || error == ZstdError::HuffmanEnd || error == ZstdError::SequencesEnd ||
            (prefix && error == ZstdError::BlockSize) || (error == ZstdError::BadMagic && RunsIntoOldVersion(data, size)))
            return;
        std::fprintf(stderr, "zstd: ours refuses (%s), libzstd decodes %zu bytes\n", ZstdErrorText(error), result);
        std::abort();
    }
    if (ZSTD_getErrorCode(result) == ZSTD_error_dstSize_tooSmall && ours.size() > kOutputMax)
        return;
    if (HasTwoByteZeroCount(data, size))
        return;
    std::fprintf(stderr, "zstd: ours decodes %zu bytes, libzstd refuses (%s)\n", ours.size(), ZSTD_getErrorName(result));
    std::abort();
}

}  // namespace fuzz_zstd
