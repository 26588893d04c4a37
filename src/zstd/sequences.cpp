// Sequences: SequenceReader turns the bit stream into (literals length, match length, offset),
// resolving the repeat offsets; SequenceWriter carries each one out into the window. A block
// whose offsets mostly stay within what the cache holds is carried out in order, one sequence
// as soon as it is read; one whose offsets reach far runs its reading a few sequences ahead of
// its copies, so that each match's source is already on its way into the cache when its copy
// comes.
#include "zstd/sequences.h"

#include "zstd/bits.h"
#include "zstd/copy.h"
#include "zstd/cpu.h"

#include <cstring>

namespace {

struct Sequence {
    size_t literalLength;
    size_t matchLength;
    size_t offset;
};

// Refills of the held word one sequence makes at most: before its extra bits, between them when
// they are many, and before its states.
constexpr unsigned kSequenceRefills = 3;

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

    // True while the next sequence cannot bring the reader near the stream's start, so that it
    // may be read with Next<true>, which refills the held word without checks.
    bool Roomy() const { return bits.RoomyRefills(8) >= kSequenceRefills; }

    // The next sequence; the last one leaves the states as they are. `zero` is set when its
    // offset, a repeat, works out to 0.
    template <bool kRoomy>
    VEY_INLINE Sequence Next(bool last, bool& zero)
    {
        Sequence sequence;
        Reload<kRoomy>();
        const SequenceRow of = offsetRows[offsetState];
        const SequenceRow ml = matchRows[matchState];
        const SequenceRow ll = literalRows[literalState];
        uint32_t offsetValue = of.base + static_cast<uint32_t>(Read<kRoomy>(of.extraBits));
        sequence.matchLength = ml.base + static_cast<size_t>(Read<kRoomy>(ml.extraBits));
        if (of.extraBits + ml.extraBits + ll.extraBits > 56)
            Reload<kRoomy>();
        sequence.literalLength = ll.base + static_cast<size_t>(Read<kRoomy>(ll.extraBits));
        zero = false;
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
                zero = offset == 0;
                if (repeat != 1)
                    rep2 = rep1;
                rep1 = rep0;
                rep0 = offset;
                sequence.offset = offset;
            }
        }
        if (!last) {
            Reload<kRoomy>();
            // The three states' bits (at most 9 + 9 + 8) in one read, literals length first.
            unsigned low = ml.stateBits + of.stateBits;
            unsigned states = static_cast<unsigned>(Read<kRoomy>(ll.stateBits + low));
            literalState = ll.nextBase + (states >> low);
            matchState = ml.nextBase + ((states >> of.stateBits) & ((1u << ml.stateBits) - 1));
            offsetState = of.nextBase + (states & ((1u << of.stateBits) - 1));
        }
        return sequence;
    }

    // The stream was read past its start: whatever broke after that, the cause is its end.
    bool Overread() const { return bits.Overread(); }
    // Every bit of the stream read, and no more.
    bool Exhausted()
    {
        bits.Reload();
        return bits.Exhausted();
    }

    void SaveRepeats(uint32_t* repeats) const
    {
        repeats[0] = rep0;
        repeats[1] = rep1;
        repeats[2] = rep2;
    }

private:
    // Away from the stream's start the held word is refilled before 64 of its bits are read.
    template <bool kRoomy>
    VEY_INLINE uint64_t Read(unsigned count)
    {
        return kRoomy ? bits.ReadNear(count) : bits.Read(count);
    }

    template <bool kRoomy>
    VEY_INLINE void Reload()
    {
        if (kRoomy)
            bits.ReloadRoomy();
        else
            bits.Reload();
    }

    BackwardBits bits;
    const SequenceRow* literalRows;
    const SequenceRow* offsetRows;
    const SequenceRow* matchRows;
    unsigned literalState = 0, offsetState = 0, matchState = 0;
    uint32_t rep0, rep1, rep2;
};

// Where a match that reaches before the near history leaves the output: its new end, or null
// with the error.
struct FarCopy {
    uint8_t* out;
    ZstdError error;
};

// A match whose source lies neither in the near history nor in an old file in memory: wrapped
// round the ring, or beyond it. Out of line, and given plain values, so that the hot loop's state
// never has its address taken.
FarCopy CopyFar(Window& window, uint8_t* out, size_t offset, size_t length, bool overread)
{
    if (const uint8_t* source = window.WrappedSource(out, offset, length)) {
        WildCopy16(out, source, length);
    } else {
        bool readFailed;
        if (!window.CopyMatch(out, offset, length, readFailed))
            return {nullptr, readFailed ? ZstdError::Read : overread ? ZstdError::SequencesEnd : ZstdError::Offset};
    }
    return {out + length, ZstdError::None};
}

// Carries out sequences into the block: each one's literals, then its match from wherever its
// source lies. A failure names the sequence's own error, or the stream's end when the reader had
// gone past the stream's start by the time that sequence was read.
class SequenceWriter {
public:
    SequenceWriter(const SequenceInput& input, size_t blockMax, Window& window)
        : start(window.BlockStart()), out(start), end(start + blockMax), near(window.NearStart()),
          literal(input.literals), literalEnd(input.literals + input.literalCount), window(&window),
          frameStart(window.FrameStart()), oldEnd(reinterpret_cast<const uint8_t*>(window.PrefixEnd())),
          oldSize(window.PrefixInView())
    {
    }

    VEY_INLINE ZstdError Execute(const Sequence& sequence, bool overread)
    {
        if (sequence.literalLength > static_cast<size_t>(literalEnd - literal))
            return overread ? ZstdError::SequencesEnd : ZstdError::Sequences;
        if (sequence.literalLength + sequence.matchLength > static_cast<size_t>(end - out))
            return overread ? ZstdError::SequencesEnd : ZstdError::BlockSize;
        // The literals and the block both have slack behind them, so the most common short run
        // takes one chunk and no branch.
        std::memcpy(out, literal, 16);
        if (sequence.literalLength > 16)
            WildCopy16(out + 16, literal + 16, sequence.literalLength - 16);
        out += sequence.literalLength;
        literal += sequence.literalLength;
        if (sequence.offset <= static_cast<size_t>(out - near)) {
            CopyNear(out, sequence.offset, sequence.matchLength);
            out += sequence.matchLength;
            return ZstdError::None;
        }
        // Wholly in the old file, when it is in memory (the match's bytes before the frame's
        // start): copied straight from there, in chunks when 15 bytes more lie behind it.
        size_t here = reinterpret_cast<uintptr_t>(out) - frameStart;
        if (sequence.offset >= here + sequence.matchLength && sequence.offset - here <= oldSize) {
            size_t back = sequence.offset - here;
            if (back >= sequence.matchLength + 16)
                WildCopy16(out, oldEnd - back, sequence.matchLength);
            else
                std::memcpy(out, oldEnd - back, sequence.matchLength);
            out += sequence.matchLength;
            return ZstdError::None;
        }
        FarCopy copy = CopyFar(*window, out, sequence.offset, sequence.matchLength, overread);
        out = copy.out;
        return copy.error;
    }

    // Appends the literals left after the last sequence; `decoded` is the block's size.
    ZstdError Finish(size_t& decoded)
    {
        size_t rest = static_cast<size_t>(literalEnd - literal);
        if (rest > static_cast<size_t>(end - out))
            return ZstdError::BlockSize;
        std::memcpy(out, literal, rest);
        out += rest;
        decoded = static_cast<size_t>(out - start);
        return ZstdError::None;
    }

    const uint8_t* Out() const { return out; }

private:
    uint8_t* start;
    uint8_t* out;
    uint8_t* end;
    const uint8_t* near;
    const uint8_t* literal;
    const uint8_t* literalEnd;
    Window* window;
    uintptr_t frameStart;   // where the frame's first byte would lie before the block
    const uint8_t* oldEnd;  // the end of the old file in memory
    uint64_t oldSize;       // its bytes in memory (0 when it is not)
};

ZstdError ZeroOffsetError(bool overread) { return overread ? ZstdError::SequencesEnd : ZstdError::ZeroOffset; }

// Reads each sequence and carries it out at once: the reader has read exactly the sequences up
// to the one that fails, so its state tells whether it had overrun. Sequences far enough from
// the stream's start are read without its checks.
VEY_INLINE ZstdError InOrder(SequenceReader& reader, unsigned count, SequenceWriter& writer)
{
    unsigned i = 0;
    bool zero;
    for (; i + 1 < count && reader.Roomy(); ++i) {
        Sequence sequence = reader.Next<true>(false, zero);
        if (zero)
            return ZeroOffsetError(false);
        ZstdError error = writer.Execute(sequence, false);
        if (error != ZstdError::None)
            return error;
    }
    for (; i < count; ++i) {
        Sequence sequence = reader.Next<false>(i + 1 == count, zero);
        if (zero)
            return ZeroOffsetError(reader.Overread());
        ZstdError error = writer.Execute(sequence, reader.Overread());
        if (error != ZstdError::None)
            return error;
    }
    return ZstdError::None;
}

// Sequences read ahead of the one being copied: enough to cover the latency of a miss to memory
// with the work of the copies between.
constexpr unsigned kAhead = 8;

// No sequence: the value of the indexes below while nothing happened.
constexpr unsigned kNone = ~0u;

// Where a match's source lies, worked out as its sequence is read, to hint it to the cache.
struct SourceHints {
    explicit SourceHints(const Window& window, const uint8_t* out)
        : ahead(reinterpret_cast<uintptr_t>(out)), near(reinterpret_cast<uintptr_t>(window.NearStart())),
          wrapSpan(window.WrapSpan()), frameStart(window.FrameStart()), prefixEnd(window.PrefixEnd())
    {
    }

    VEY_INLINE void Hint(const Sequence& sequence)
    {
        ahead += sequence.literalLength;
        uintptr_t source = ahead - sequence.offset;
        if (source < near) {
            // Before the frame's start: in the old file; else wrapped round the ring.
            size_t here = ahead - frameStart;
            source = sequence.offset > here && prefixEnd ? prefixEnd - (sequence.offset - here) : source + wrapSpan;
        }
        PrefetchLine(source);
        ahead += sequence.matchLength;
    }

    // Where the literals of the next sequence read will go, as an address for the hint only:
    // damaged lengths may take it anywhere.
    uintptr_t ahead;
    uintptr_t near;
    size_t wrapSpan;
    uintptr_t frameStart;
    uintptr_t prefixEnd;
};

// Reads kAhead sequences ahead of the one carried out, hinting each match's source to the cache
// as it is read. The first sequence read after an overrun, and the first with a zero offset, are
// noted so that each sequence fails as it would in order.
class AheadLoop {
public:
    AheadLoop(unsigned count, SourceHints hints) : count(count), hints(hints) {}

    VEY_INLINE ZstdError Run(SequenceReader& reader, SequenceWriter& writer)
    {
        unsigned i = 0;
        ZstdError error = ZstdError::None;
        for (; i + 1 < count && reader.Roomy() && error == ZstdError::None; ++i)
            error = Round<true>(i, reader, writer);
        for (; i < count + kAhead && error == ZstdError::None; ++i)
            error = Round<false>(i, reader, writer);
        return error;
    }

private:
    // Reads sequence i, when there is one, and carries out sequence i - kAhead.
    template <bool kRoomy>
    VEY_INLINE ZstdError Round(unsigned i, SequenceReader& reader, SequenceWriter& writer)
    {
        Sequence& slot = queue[i % kAhead];
        const Sequence sequence = slot;
        if (kRoomy || i < count) {
            bool zero;
            slot = reader.Next<kRoomy>(!kRoomy && i + 1 == count, zero);
            if (zero && zeroAt == kNone) {
                zeroAt = i;
                zeroOverread = reader.Overread();
            }
            if (!kRoomy && overreadAt == kNone && reader.Overread())
                overreadAt = i;
            hints.Hint(slot);
        }
        if (i < kAhead)
            return ZstdError::None;
        unsigned index = i - kAhead;
        if (index == zeroAt)
            return ZeroOffsetError(zeroOverread);
        return writer.Execute(sequence, index >= overreadAt);
    }

    const unsigned count;
    SourceHints hints;
    Sequence queue[kAhead] = {};
    unsigned zeroAt = kNone, overreadAt = kNone;
    bool zeroOverread = false;
};

// Runs the chosen loop on copies of the reader and the writer, which then live in registers
// (the loops' byte stores could otherwise change them), and hands them back at the end.
VEY_INLINE ZstdError Run(SequenceReader& sharedReader, unsigned count, SequenceWriter& sharedWriter, const Window& window,
                         bool far)
{
    SequenceReader reader = sharedReader;
    SequenceWriter writer = sharedWriter;
    ZstdError error = far ? AheadLoop(count, SourceHints(window, writer.Out())).Run(reader, writer)
                          : InOrder(reader, count, writer);
    sharedReader = reader;
    sharedWriter = writer;
    return error;
}

ZstdError RunPlain(SequenceReader& reader, unsigned count, SequenceWriter& writer, const Window& window, bool far)
{
    return Run(reader, count, writer, window, far);
}

VEY_TARGET_BMI2 ZstdError RunBmi2(SequenceReader& reader, unsigned count, SequenceWriter& writer, const Window& window,
                                  bool far)
{
    return Run(reader, count, writer, window, far);
}

}  // namespace

ZstdError ExecuteSequences(const uint8_t* stream, size_t size, unsigned count, const SequenceInput& input,
                           size_t blockMax, Window& window, size_t& decoded)
{
    SequenceReader reader(input);
    if (!reader.Start(stream, size, input))
        return ZstdError::Sequences;
    SequenceWriter writer(input, blockMax, window);
    const SequenceTable& offsets = *input.tables[1];
    bool far = offsets.farRows * kFarShare >= (1u << offsets.log);
    ZstdError error = HasBmi2() ? RunBmi2(reader, count, writer, window, far) : RunPlain(reader, count, writer, window, far);
    if (error != ZstdError::None)
        return error;
    if (!reader.Exhausted())
        return ZstdError::SequencesEnd;
    error = writer.Finish(decoded);
    if (error == ZstdError::None)
        reader.SaveRepeats(input.repeats);
    return error;
}
