// Sequences: SequenceReader turns the bit stream into (literals length, match length, offset),
// resolving the repeat offsets; ExecuteSequences keeps a short queue of them, hinting each
// match's source to the cache when it is read and copying it when it leaves the queue.
#include "zstd/sequences.h"

#include "zstd/bits.h"
#include "zstd/copy.h"

namespace {

struct Sequence {
    size_t literalLength;
    size_t matchLength;
    size_t offset;
};

// No sequence: the value of the indexes below while nothing happened.
constexpr unsigned kNone = ~0u;

class SequenceReader {
public:
    explicit SequenceReader(const SequenceInput& input)
        : literalRows(input.tables[0]->rows), offsetRows(input.tables[1]->rows), matchRows(input.tables[2]->rows),
          rep0(input.repeats[0]), rep1(input.repeats[1]), rep2(input.repeats[2])
    {
    }

    bool Start(const uint8_t* stream, size_t size, const SequenceInput& input)
    {
        if (!bits.Start(stream, size))
            return false;
        literalState = static_cast<unsigned>(bits.Read(input.tables[0]->log));
        offsetState = static_cast<unsigned>(bits.Read(input.tables[1]->log));
        matchState = static_cast<unsigned>(bits.Read(input.tables[2]->log));
        return true;
    }

    // Sequence `number` of the block; the last one leaves the states as they are.
    Sequence Next(unsigned number, bool last)
    {
        Sequence sequence;
        bits.Reload();
        const SequenceRow of = offsetRows[offsetState];
        const SequenceRow ml = matchRows[matchState];
        const SequenceRow ll = literalRows[literalState];
        uint32_t offsetValue = of.base + static_cast<uint32_t>(bits.Read(of.extraBits));
        sequence.matchLength = ml.base + static_cast<size_t>(bits.Read(ml.extraBits));
        if (of.extraBits + ml.extraBits + ll.extraBits > 56)
            bits.Reload();
        sequence.literalLength = ll.base + static_cast<size_t>(bits.Read(ll.extraBits));
        if (offsetValue > 3) {
            sequence.offset = offsetValue - 3;
            rep2 = rep1;
            rep1 = rep0;
            rep0 = static_cast<uint32_t>(sequence.offset);
        } else {
            unsigned repeat = offsetValue - 1 + (sequence.literalLength == 0);
            if (repeat == 0) {
                sequence.offset = rep0;
            } else {
                uint32_t offset = repeat == 1 ? rep1 : repeat == 2 ? rep2 : rep0 - 1;
                if (offset == 0 && zeroAt == kNone) {
                    zeroAt = number;
                    zeroError = bits.Overread() ? ZstdError::SequencesEnd : ZstdError::ZeroOffset;
                }
                if (repeat != 1)
                    rep2 = rep1;
                rep1 = rep0;
                rep0 = offset;
                sequence.offset = offset;
            }
        }
        if (!last) {
            bits.Reload();
            literalState = ll.nextBase + static_cast<unsigned>(bits.Read(ll.stateBits));
            matchState = ml.nextBase + static_cast<unsigned>(bits.Read(ml.stateBits));
            offsetState = of.nextBase + static_cast<unsigned>(bits.Read(of.stateBits));
        }
        if (overreadAt == kNone && bits.Overread())
            overreadAt = number;
        return sequence;
    }

    // Every bit of the stream read, and no more.
    bool Exhausted()
    {
        bits.Reload();
        return bits.Exhausted();
    }

    // The error of a sequence that could not be carried out: once the stream was read past its
    // start, whatever broke, the cause is the stream's end.
    ZstdError Failure(unsigned number, ZstdError error) const
    {
        return number >= overreadAt ? ZstdError::SequencesEnd : error;
    }

    // The first sequence whose repeat offset worked out to 0 (kNone when none), and its error.
    unsigned zeroAt = kNone;
    ZstdError zeroError = ZstdError::None;

    void SaveRepeats(uint32_t* repeats) const
    {
        repeats[0] = rep0;
        repeats[1] = rep1;
        repeats[2] = rep2;
    }

private:
    BackwardBits bits;
    const SequenceRow* literalRows;
    const SequenceRow* offsetRows;
    const SequenceRow* matchRows;
    unsigned literalState = 0, offsetState = 0, matchState = 0;
    uint32_t rep0, rep1, rep2;
    unsigned overreadAt = kNone;  // the first sequence read with the stream read past its start
};

// Sequences read ahead of the one being copied: enough to cover the latency of a miss to memory
// with the work of the copies between.
constexpr unsigned kAhead = 8;

}  // namespace

ZstdError ExecuteSequences(const uint8_t* stream, size_t size, unsigned count, const SequenceInput& input,
                           size_t blockMax, Window& window, size_t& decoded)
{
    SequenceReader reader(input);
    if (!reader.Start(stream, size, input))
        return ZstdError::Sequences;
    uint8_t* const start = window.BlockStart();
    const uint8_t* const near = window.NearStart();
    uint8_t* out = start;
    uint8_t* const end = start + blockMax;
    const uint8_t* literal = input.literals;
    const uint8_t* const literalEnd = literal + input.literalCount;

    // Where the literals of the next sequence read will go, as an address for the cache hint
    // only: damaged lengths may take it anywhere.
    uintptr_t ahead = reinterpret_cast<uintptr_t>(out);
    const size_t wrapSpan = window.WrapSpan();
    const uintptr_t frameStart = window.FrameStart();
    const uintptr_t prefixEnd = window.PrefixEnd();
    auto hint = [&](const Sequence& sequence) {
        ahead += sequence.literalLength;
        uintptr_t source = ahead - sequence.offset;
        if (source < reinterpret_cast<uintptr_t>(near)) {
            // Before the frame's start: in the old file; else wrapped round the ring.
            size_t here = ahead - frameStart;
            source = sequence.offset > here && prefixEnd ? prefixEnd - (sequence.offset - here) : source + wrapSpan;
        }
        PrefetchLine(source);
        ahead += sequence.matchLength;
    };
    // Round i reads sequence i and carries out sequence i - kAhead.
    Sequence queue[kAhead] = {};
    bool wild = false;
    for (unsigned i = 0; i < count + kAhead; ++i) {
        Sequence& slot = queue[i % kAhead];
        const Sequence sequence = slot;
        if (i < count) {
            slot = reader.Next(i, i + 1 == count);
            hint(slot);
        }
        if (i < kAhead)
            continue;
        unsigned index = i - kAhead;
        if (index == reader.zeroAt)
            return reader.zeroError;
        if (sequence.literalLength > static_cast<size_t>(literalEnd - literal))
            return reader.Failure(index, ZstdError::Sequences);
        if (sequence.literalLength + sequence.matchLength > static_cast<size_t>(end - out))
            return reader.Failure(index, ZstdError::BlockSize);
        if (sequence.literalLength) {
            WildCopy16(out, literal, sequence.literalLength);
            out += sequence.literalLength;
            literal += sequence.literalLength;
        }
        if (sequence.offset <= static_cast<size_t>(out - near)) {
            CopyNear(out, sequence.offset, sequence.matchLength);
        } else if (const uint8_t* source = window.WrappedSource(out, sequence.offset, sequence.matchLength)) {
            WildCopy16(out, source, sequence.matchLength);
        } else if (const uint8_t* old = window.PrefixSource(out, sequence.offset, sequence.matchLength, wild)) {
            if (wild)
                WildCopy16(out, old, sequence.matchLength);
            else
                std::memcpy(out, old, sequence.matchLength);
        } else {
            bool readFailed;
            if (!window.CopyMatch(out, sequence.offset, sequence.matchLength, readFailed))
                return readFailed ? ZstdError::Read : reader.Failure(index, ZstdError::Offset);
        }
        out += sequence.matchLength;
    }
    if (!reader.Exhausted())
        return ZstdError::SequencesEnd;
    size_t rest = static_cast<size_t>(literalEnd - literal);
    if (rest > static_cast<size_t>(end - out))
        return ZstdError::BlockSize;
    std::memcpy(out, literal, rest);
    out += rest;
    reader.SaveRepeats(input.repeats);
    decoded = static_cast<size_t>(out - start);
    return ZstdError::None;
}
