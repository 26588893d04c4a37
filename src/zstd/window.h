// Window: the recent output of a frame (and, before it, the end of the old file of a patch) in a
// ring of bounded size, where a block is decoded in place. Bytes further back are read where they
// already are: the sink (output written so far) or the prefix reader (the old file). The output
// goes to the sink from the ring in pieces of up to kFlushSize, since each write of a file costs
// a system call (under Wine, a round trip to its server).
#pragma once
#include "zstd/decoder.h"

#include <cstddef>
#include <cstdint>
#include <memory>

constexpr size_t kBlockMax = 128 * 1024;
// Room past a block for copies that write whole 16-byte chunks beyond their end.
constexpr size_t kCopySlack = 64;
// The most recent output the ring holds, whatever the frame's window.
constexpr size_t kRingHistoryMax = 8 * 1024 * 1024;
// The output the ring gathers before handing it to the sink.
constexpr size_t kFlushSize = 1024 * 1024;

class Window {
public:
    Window(ZstdSink& sink, HistoryReader* prefix, uint64_t prefixSize);

    // Makes ready for a frame of `windowSize` whose output starts at sink position `sinkStart`;
    // loads the end of the prefix unless it is in memory. False when the prefix cannot be read.
    bool StartFrame(uint64_t windowSize, uint64_t sinkStart);
    // Grows the ring before a block when its history is full and the frame may reach further.
    void PrepareBlock();

    // Where the next block is decoded: kBlockMax bytes, and kCopySlack more that copies may
    // scribble on.
    uint8_t* BlockStart() { return ring.get() + head; }
    // Takes `length` decoded bytes at BlockStart() into the history.
    void EndBlock(size_t length);
    // True when the output not yet handed to the sink should go now: a full piece, or as much
    // as the next block could overwrite.
    bool FlushDue() const { return pending >= kFlushSize || pending + kBlockMax > historyMax; }
    // Hands the output not yet handed to the sink, adding its size to `written`; false when the
    // sink refuses it. Matches that reach beyond the ring read only output handed before.
    bool Flush(uint64_t& written);

    // Copies `length` bytes from `distance` bytes before `out` (inside the block being decoded)
    // to `out`: from the ring, or from the sink and the prefix. False when the distance reaches
    // before the prefix or a reader fails (`readFailed` tells which).
    bool CopyMatch(uint8_t* out, uint64_t distance, size_t length, bool& readFailed);

    // The oldest byte that a match in the current block may copy from with plain pointer
    // arithmetic: history that lies before the block in the ring without wrapping.
    const uint8_t* NearStart() const { return head >= held ? ring.get() + head - held : ring.get(); }

    // The source of a match from `out` (inside the block) `distance` bytes back that lies in the
    // history wrapped round the ring's end, whole before that end; null when it does not. Only
    // for a distance beyond NearStart(). The block never overlaps the history, so the copy may
    // run in whole chunks.
    const uint8_t* WrappedSource(const uint8_t* out, size_t distance, size_t length) const
    {
        size_t inBlock = static_cast<size_t>(out - (ring.get() + head));
        if (head >= held || distance > held + inBlock)
            return nullptr;
        size_t physical = head + inBlock + size - distance;
        return physical + length <= size ? ring.get() + physical : nullptr;
    }
    // Where the frame's first byte would lie if the whole frame were in memory before the
    // block, and the end of the old file when it is in memory (0 when not); for cache hints.
    uintptr_t FrameStart() const
    {
        return reinterpret_cast<uintptr_t>(ring.get() + head) - static_cast<uintptr_t>(produced);
    }
    uintptr_t PrefixEnd() const { return prefixView ? reinterpret_cast<uintptr_t>(prefixView + prefixSize) : 0; }
    // The bytes of the old file that lie in memory, ending at PrefixEnd(): all of it or none.
    uint64_t PrefixInView() const { return prefixView ? prefixSize : 0; }
    // What to add to an address before NearStart() to reach the history wrapped round the
    // ring's end (for cache hints).
    size_t WrapSpan() const { return head >= held ? 0 : size; }

    size_t Capacity() const { return allocated; }

private:
    bool CopyFar(uint8_t* out, int64_t from, size_t length);
    void CopyFromRing(uint8_t* out, int64_t from, size_t length);
    // Moves the history into a ring that keeps `history` bytes.
    void Resize(size_t history);

    ZstdSink& sink;
    HistoryReader* prefix;
    uint64_t prefixSize;
    const uint8_t* prefixView;  // the old file in memory, or null
    std::unique_ptr<uint8_t[]> ring;
    size_t allocated = 0;  // bytes of `ring`: size + kBlockMax + kCopySlack
    size_t size = 0;       // the ring's span; a block past it runs on into the tail and is folded back
    size_t historyMax = 0; // most history the ring keeps now: size - kBlockMax - kCopySlack
    size_t historyLimit = 0;  // most history the ring may hold: the window, and a prefix not in memory
    size_t head = 0;       // where the next block starts in the ring
    size_t held = 0;       // history bytes behind `head` that the ring holds
    size_t pending = 0;    // the newest of them, not yet handed to the sink (never above `held`)
    int64_t produced = 0;  // the frame's bytes before the current block
    uint64_t sinkStart = 0;
};
