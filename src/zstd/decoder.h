// ZstdDecoder: decodes Zstandard frames pushed in chunks of any size and hands the output to a
// sink as it goes. It keeps at most a few MiB of recent output in memory; a match that reaches
// further back reads its bytes where they already are (the output written so far, or the old
// file of a patch) through HistoryReader, so its memory does not grow with the frame's window.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>

// What a frame may ask for. A frame whose header asks more is refused before any of its output.
struct ZstdLimits {
    uint64_t maxWindow = uint64_t(1) << 31;  // largest window size a frame may declare
    uint64_t maxContent = ~uint64_t(0);      // largest output of one frame, declared or decoded
};

// Why decoding stopped; ZstdErrorText gives the log's words for each.
enum class ZstdError : uint8_t {
    None,
    NoFrame,             // the input ended before any frame
    Truncated,           // the input ended inside a frame
    BadMagic,            // a frame starts with neither the frame nor a skippable magic number
    FrameHeader,         // reserved bit set, or a header field out of range
    Dictionary,          // the frame names a dictionary (ID other than 0): not supported
    WindowTooLarge,      // the frame's window is above ZstdLimits::maxWindow
    ContentTooLarge,     // the frame's content (declared or decoded) is above ZstdLimits::maxContent
    ContentSize,         // the decoded size differs from the frame's declared content size
    Checksum,            // the content checksum differs from the decoded content's
    BlockType,           // a block of the reserved type
    BlockSize,           // a compressed block above 128 KiB, as sent or as decoded
    Literals,            // a malformed literals section
    Huffman,             // a malformed Huffman table or stream
    FseTable,            // a malformed FSE table description
    Sequences,           // a malformed sequences section or sequence bit stream
    Offset,              // a match offset reaching before the first byte of history
    Write,               // the sink refused the output
    Read,                // the history reader could not give back bytes it should hold
    ZeroOffset,          // a repeat offset that works out to 0
    HuffmanStates,       // the Huffman weights' stream ends before its two states
    ExtraBytes,          // bytes after a sequences section that has no sequences
    ReservedBits,        // the reserved bits of a sequences section's modes are set
    HuffmanEnd,          // a Huffman stream lacks its end marker, or its bits and symbols differ
    SequencesEnd,        // the sequences need more or fewer bits than their stream holds
};

// A short text for the log, such as "content checksum mismatch".
const char* ZstdErrorText(ZstdError error);

// Gives back bytes that already exist at positions counted from 0: the old file of a patch, or
// the output written so far.
class HistoryReader {
public:
    virtual ~HistoryReader() = default;
    // Copies `length` bytes from `position` into `buffer`; false when they cannot all be read.
    virtual bool ReadAt(uint64_t position, void* buffer, size_t length) = 0;
    // All the bytes at once when they lie in memory (a mapped file), so that matches copy
    // straight from them; null otherwise. The prefix reader's view must stay valid and
    // unchanged while the decoder lives.
    virtual const uint8_t* View() { return nullptr; }
};

// Where the output goes: appended in order, and read back (ReadAt, positions counted from the
// first byte this sink was given) when a match reaches beyond the decoder's memory.
class ZstdSink : public HistoryReader {
public:
    // Appends `length` bytes after everything written before; false when they cannot be written.
    virtual bool Write(const void* data, size_t length) = 0;
};

class ZstdDecoder {
public:
    // `prefix`, when not null, holds `prefixSize` bytes (the old file of a patch) that stand
    // before the output of every frame: matches may reach into them. Both `prefix` and `sink`
    // must outlive the decoder.
    ZstdDecoder(const ZstdLimits& limits, ZstdSink& sink, HistoryReader* prefix = nullptr, uint64_t prefixSize = 0);
    ~ZstdDecoder();
    ZstdDecoder(const ZstdDecoder&) = delete;
    ZstdDecoder& operator=(const ZstdDecoder&) = delete;

    // Decodes as far as the input given so far allows, writing the output to the sink. After an
    // error nothing more is decoded and every later call returns that error.
    ZstdError Push(const void* data, size_t length);
    // Ends the input: None when it ended right after a whole frame (at least one frame, skippable
    // frames included), Truncated when inside one, or the earlier error.
    ZstdError Finish();

    // Bytes handed to the sink so far.
    uint64_t Written() const;
    // Bytes of memory the decoder holds now (its buffers and tables), for tests and the log.
    size_t MemoryHeld() const;

private:
    struct State;
    std::unique_ptr<State> state;
};
