// ZstdDecoder: the frame layer. Input is taken in units (magic number, frame header, block
// header, block content, checksum); a unit that a pushed chunk holds whole is decoded in place,
// one that spans chunks is gathered first. Raw block content goes straight to the window and
// skipped bytes nowhere. Raw and RLE blocks may be larger than a compressed block's 128 KiB
// (older encoders' decoders accept them), so they are emitted in pieces of at most that.
#include "zstd/decoder.h"

#include "zstd/block.h"
#include "zstd/window.h"
#include "zstd/xxhash64.h"

#include <cstring>

namespace {

constexpr uint32_t kFrameMagic = 0xFD2FB528;
constexpr uint32_t kSkippableMagic = 0x184D2A50;  // the low 4 bits are free

constexpr uint8_t kIdSize[4] = {0, 1, 2, 4};
constexpr uint8_t kSizeSize[4] = {0, 2, 4, 8};

enum class Unit { Magic, Descriptor, Header, BlockHeader, BlockContent, RawContent, Checksum, SkipSize, Skip };

uint32_t LoadLe32(const uint8_t* p) { return p[0] | (p[1] << 8) | (p[2] << 16) | (uint32_t(p[3]) << 24); }

uint64_t LoadLe(const uint8_t* p, size_t size)
{
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i)
        value |= uint64_t(p[i]) << (8 * i);
    return value;
}

}  // namespace

struct ZstdDecoder::State {
    State(const ZstdLimits& limits, ZstdSink& sink, HistoryReader* prefix, uint64_t prefixSize)
        : limits(limits), window(sink, prefix, prefixSize), gathered(new uint8_t[kBlockMax + 16])
    {
    }

    ZstdError Take(const uint8_t* data);
    ZstdError StartHeader(const uint8_t* data);
    ZstdError ReadHeader(const uint8_t* data);
    ZstdError ReadBlockHeader(const uint8_t* data);
    ZstdError ReadBlock(const uint8_t* data);
    ZstdError TakeRaw(const uint8_t*& data, size_t& length);
    ZstdError EndBlock();
    ZstdError Emit(size_t length);
    void Expect(Unit next, size_t size)
    {
        unit = next;
        needed = size;
    }

    ZstdLimits limits;
    Window window;
    BlockDecoder blocks;
    Xxh64 checksum;
    std::unique_ptr<uint8_t[]> gathered;
    size_t held = 0;  // bytes of the current unit in `gathered`
    Unit unit = Unit::Magic;
    size_t needed = 4;
    uint64_t skipLeft = 0;
    ZstdError error = ZstdError::None;
    bool sawFrame = false;
    uint64_t written = 0;

    // The frame being decoded.
    uint8_t descriptor = 0;
    bool hasChecksum = false;
    bool sizeKnown = false;
    uint64_t contentSize = 0;
    uint64_t decoded = 0;
    unsigned blockType = 0;
    bool lastBlock = false;
    size_t blockSize = 0;
    size_t rawLeft = 0;  // bytes of a raw block still to come
    size_t rawHeld = 0;  // bytes of it at the window's block start, not yet emitted
};

ZstdError ZstdDecoder::State::Take(const uint8_t* data)
{
    switch (unit) {
    case Unit::Magic: {
        uint32_t magic = LoadLe32(data);
        sawFrame = true;
        if (magic == kFrameMagic) {
            Expect(Unit::Descriptor, 1);
            return ZstdError::None;
        }
        if ((magic & 0xFFFFFFF0) == kSkippableMagic) {
            Expect(Unit::SkipSize, 4);
            return ZstdError::None;
        }
        return ZstdError::BadMagic;
    }
    case Unit::Descriptor:
        return StartHeader(data);
    case Unit::Header:
        return ReadHeader(data);
    case Unit::BlockHeader:
        return ReadBlockHeader(data);
    case Unit::BlockContent:
        return ReadBlock(data);
    case Unit::Checksum:
        if (LoadLe32(data) != static_cast<uint32_t>(checksum.Digest()))
            return ZstdError::Checksum;
        Expect(Unit::Magic, 4);
        return ZstdError::None;
    case Unit::SkipSize:
        skipLeft = LoadLe32(data);
        Expect(Unit::Skip, 0);
        if (!skipLeft)
            Expect(Unit::Magic, 4);
        return ZstdError::None;
    case Unit::RawContent:
    case Unit::Skip:
        break;
    }
    return ZstdError::None;
}

ZstdError ZstdDecoder::State::StartHeader(const uint8_t* data)
{
    descriptor = data[0];
    if (descriptor & 0x08)
        return ZstdError::FrameHeader;
    bool single = descriptor & 0x20;
    unsigned sizeFlag = descriptor >> 6;
    size_t rest = (single ? 0 : 1) + kIdSize[descriptor & 3] + (sizeFlag == 0 ? (single ? 1 : 0) : kSizeSize[sizeFlag]);
    Expect(Unit::Header, rest);
    return ZstdError::None;
}

ZstdError ZstdDecoder::State::ReadHeader(const uint8_t* data)
{
    bool single = descriptor & 0x20;
    unsigned sizeFlag = descriptor >> 6;
    uint64_t windowSize = 0;
    if (!single) {
        unsigned exponent = data[0] >> 3;
        uint64_t base = uint64_t(1) << (10 + exponent);
        windowSize = base + (base / 8) * (data[0] & 7);
        ++data;
    }
    size_t idSize = kIdSize[descriptor & 3];
    if (LoadLe(data, idSize) != 0)
        return ZstdError::Dictionary;
    data += idSize;
    size_t sizeSize = sizeFlag == 0 ? (single ? 1 : 0) : kSizeSize[sizeFlag];
    sizeKnown = sizeSize != 0;
    contentSize = LoadLe(data, sizeSize) + (sizeSize == 2 ? 256 : 0);
    if (single)
        windowSize = contentSize;
    else if (windowSize > limits.maxWindow)
        return ZstdError::WindowTooLarge;
    if (sizeKnown && contentSize > limits.maxContent)
        return ZstdError::ContentTooLarge;
    hasChecksum = descriptor & 0x04;
    decoded = 0;
    checksum.Reset();
    blocks.StartFrame();
    if (!window.StartFrame(windowSize, written))
        return ZstdError::Read;
    Expect(Unit::BlockHeader, 3);
    return ZstdError::None;
}

ZstdError ZstdDecoder::State::ReadBlockHeader(const uint8_t* data)
{
    uint32_t header = data[0] | (data[1] << 8) | (uint32_t(data[2]) << 16);
    lastBlock = header & 1;
    blockType = (header >> 1) & 3;
    blockSize = header >> 3;
    if (blockType == 3)
        return ZstdError::BlockType;
    if (blockType == 0) {
        rawLeft = blockSize;
        rawHeld = 0;
        Expect(Unit::RawContent, 0);
        return blockSize ? ZstdError::None : EndBlock();
    }
    if (blockType == 2 && blockSize > kBlockMax)
        return ZstdError::BlockSize;
    size_t content = blockType == 1 ? 1 : blockSize;
    Expect(Unit::BlockContent, content);
    return content ? ZstdError::None : ReadBlock(data);
}

ZstdError ZstdDecoder::State::ReadBlock(const uint8_t* data)
{
    if (blockType == 1) {
        for (size_t left = blockSize; left;) {
            size_t piece = left < kBlockMax ? left : kBlockMax;
            window.PrepareBlock();
            std::memset(window.BlockStart(), data[0], piece);
            ZstdError failed = Emit(piece);
            if (failed != ZstdError::None)
                return failed;
            left -= piece;
        }
        return EndBlock();
    }
    window.PrepareBlock();
    size_t length;
    ZstdError failed = blocks.Decode(data, blockSize, kBlockMax, window, length);
    if (failed == ZstdError::None)
        failed = Emit(length);
    return failed == ZstdError::None ? EndBlock() : failed;
}

ZstdError ZstdDecoder::State::TakeRaw(const uint8_t*& data, size_t& length)
{
    if (rawHeld == 0)
        window.PrepareBlock();
    size_t take = length < rawLeft ? length : rawLeft;
    if (take > kBlockMax - rawHeld)
        take = kBlockMax - rawHeld;
    std::memcpy(window.BlockStart() + rawHeld, data, take);
    rawHeld += take;
    rawLeft -= take;
    data += take;
    length -= take;
    if (rawHeld < kBlockMax && rawLeft)
        return ZstdError::None;
    size_t piece = rawHeld;
    rawHeld = 0;
    ZstdError failed = Emit(piece);
    return failed == ZstdError::None && !rawLeft ? EndBlock() : failed;
}

ZstdError ZstdDecoder::State::EndBlock()
{
    if (!lastBlock) {
        Expect(Unit::BlockHeader, 3);
        return ZstdError::None;
    }
    // The next frame's output follows this one's in the sink.
    if (!window.Flush(written))
        return ZstdError::Write;
    if (sizeKnown && decoded != contentSize)
        return ZstdError::ContentSize;
    Expect(hasChecksum ? Unit::Checksum : Unit::Magic, 4);
    return ZstdError::None;
}

ZstdError ZstdDecoder::State::Emit(size_t length)
{
    if (sizeKnown && length > contentSize - decoded)
        return ZstdError::ContentSize;
    if (length > limits.maxContent - decoded)
        return ZstdError::ContentTooLarge;
    if (hasChecksum)
        checksum.Update(window.BlockStart(), length);
    window.EndBlock(length);
    decoded += length;
    if (window.FlushDue() && !window.Flush(written))
        return ZstdError::Write;
    return ZstdError::None;
}

ZstdDecoder::ZstdDecoder(const ZstdLimits& limits, ZstdSink& sink, HistoryReader* prefix, uint64_t prefixSize)
    : state(new State(limits, sink, prefix, prefixSize))
{
}

ZstdDecoder::~ZstdDecoder() = default;

ZstdError ZstdDecoder::Push(const void* data, size_t length)
{
    State& s = *state;
    const uint8_t* in = static_cast<const uint8_t*>(data);
    while (length && s.error == ZstdError::None) {
        if (s.unit == Unit::RawContent) {
            s.error = s.TakeRaw(in, length);
            continue;
        }
        if (s.unit == Unit::Skip) {
            size_t take = length < s.skipLeft ? length : static_cast<size_t>(s.skipLeft);
            s.skipLeft -= take;
            in += take;
            length -= take;
            if (!s.skipLeft)
                s.Expect(Unit::Magic, 4);
            continue;
        }
        if (s.held == 0 && length >= s.needed) {
            size_t size = s.needed;
            s.error = s.Take(in);
            in += size;
            length -= size;
            continue;
        }
        size_t take = s.needed - s.held < length ? s.needed - s.held : length;
        std::memcpy(s.gathered.get() + s.held, in, take);
        s.held += take;
        in += take;
        length -= take;
        if (s.held == s.needed) {
            s.held = 0;
            s.error = s.Take(s.gathered.get());
        }
    }
    return s.error;
}

ZstdError ZstdDecoder::Finish()
{
    State& s = *state;
    if (s.error != ZstdError::None)
        return s.error;
    if (!s.sawFrame && s.held == 0)
        s.error = ZstdError::NoFrame;
    else if (s.unit != Unit::Magic || s.held != 0)
        s.error = ZstdError::Truncated;
    return s.error;
}

uint64_t ZstdDecoder::Written() const { return state->written; }

size_t ZstdDecoder::MemoryHeld() const
{
    return sizeof(State) + kBlockMax + 16 + state->window.Capacity() + state->blocks.MemoryHeld();
}
