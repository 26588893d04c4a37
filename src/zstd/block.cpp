// Compressed blocks: the literals section, the sequence tables, and the sequences executed with
// whole-chunk copies into the window.
#include "zstd/block.h"

#include "zstd/bits.h"
#include "zstd/fse.h"

#include <cstring>

namespace {

constexpr unsigned kMaxSymbol[3] = {35, 31, 52};
constexpr unsigned kMaxLog[3] = {9, 8, 9};

constexpr uint32_t kLiteralsBase[36] = {0,  1,  2,  3,  4,   5,   6,   7,    8,    9,    10,   11,
                                        12, 13, 14, 15, 16,  18,  20,  22,   24,   28,   32,   40,
                                        48, 64, 128, 256, 512, 1024, 2048, 4096, 8192, 16384, 32768, 65536};
constexpr uint8_t kLiteralsBits[36] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1,
                                       1, 1, 2, 2, 3, 3, 4, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
constexpr uint32_t kMatchBase[53] = {3,  4,  5,  6,  7,  8,  9,  10, 11, 12,  13,  14,  15,   16,   17,   18,   19,   20,
                                     21, 22, 23, 24, 25, 26, 27, 28, 29, 30,  31,  32,  33,   34,   35,   37,   39,   41,
                                     43, 47, 51, 59, 67, 83, 99, 131, 259, 515, 1027, 2051, 4099, 8195, 16387, 32771, 65539};
constexpr uint8_t kMatchBits[53] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                    0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 4, 4, 5, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

constexpr int16_t kLiteralsDefault[36] = {4, 3, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 1, 1, 1, 2, 2,
                                          2, 2, 2, 2, 2, 2, 2, 3, 2, 1, 1, 1, 1, 1, -1, -1, -1, -1};
constexpr int16_t kMatchDefault[53] = {1, 4, 3, 2, 2, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                                       1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, -1, -1, -1, -1, -1, -1, -1};
constexpr int16_t kOffsetDefault[29] = {1, 1, 1, 1, 1, 1, 2, 2, 2, 1, 1, 1, 1, 1, 1,
                                        1, 1, 1, 1, 1, 1, 1, 1, 1, -1, -1, -1, -1, -1};

void SetCode(SequenceRow& row, unsigned kind, unsigned symbol)
{
    if (kind == 0) {
        row.base = kLiteralsBase[symbol];
        row.extraBits = kLiteralsBits[symbol];
    } else if (kind == 1) {
        row.base = uint32_t(1) << symbol;
        row.extraBits = static_cast<uint8_t>(symbol);
    } else {
        row.base = kMatchBase[symbol];
        row.extraBits = kMatchBits[symbol];
    }
}

bool BuildTable(const FseDistribution& distribution, unsigned kind, SequenceTable& table)
{
    FseRow rows[512];
    if (!BuildFseRows(distribution, rows))
        return false;
    unsigned size = 1u << distribution.log;
    for (unsigned u = 0; u < size; ++u) {
        table.rows[u].nextBase = rows[u].nextBase;
        table.rows[u].stateBits = rows[u].bits;
        SetCode(table.rows[u], kind, rows[u].symbol);
    }
    table.log = distribution.log;
    return true;
}

void BuildDefault(const int16_t* counts, unsigned symbols, unsigned log, unsigned kind, SequenceTable& table)
{
    FseDistribution distribution;
    std::memcpy(distribution.counts, counts, symbols * sizeof(int16_t));
    distribution.symbols = symbols;
    distribution.log = log;
    BuildTable(distribution, kind, table);
}

struct Defaults {
    SequenceTable tables[3];
    Defaults()
    {
        BuildDefault(kLiteralsDefault, 36, 6, 0, tables[0]);
        BuildDefault(kOffsetDefault, 29, 5, 1, tables[1]);
        BuildDefault(kMatchDefault, 53, 6, 2, tables[2]);
    }
};

const Defaults& DefaultTables()
{
    static const Defaults defaults;
    return defaults;
}

// Copies whole 16-byte chunks: may write up to 15 bytes past `length`.
inline void WildCopy16(uint8_t* out, const uint8_t* from, size_t length)
{
    uint8_t* end = out + length;
    do {
        std::memcpy(out, from, 16);
        out += 16;
        from += 16;
    } while (out < end);
}

// Copies a match whose source lies `offset` bytes back in the same buffer; may write up to 15
// bytes past `length`. A short offset repeats a pattern: once its first 16 bytes are out, copies
// from a multiple of the offset at least 16 back move 16 bytes at a time without overlap.
inline void CopyNear(uint8_t* out, size_t offset, size_t length)
{
    const uint8_t* from = out - offset;
    if (offset >= 16) {
        WildCopy16(out, from, length);
        return;
    }
    if (offset >= 8) {
        std::memcpy(out, from, 8);
        std::memcpy(out + 8, from + 8, 8);
    } else {
        for (int i = 0; i < 16; ++i)
            out[i] = from[i];
    }
    if (length <= 16)
        return;
    size_t step = offset * ((16 + offset - 1) / offset);
    uint8_t* end = out + length;
    out += 16;
    do {
        std::memcpy(out, out - step, 16);
        out += 16;
    } while (out < end);
}

// A sequence read past the start of the stream has made-up values: whatever they broke, the
// cause is the stream's end. That, and bits left over at the end, are told apart from other
// damage, since some decoders let them pass.
inline ZstdError Failed(const BackwardBits& bits, ZstdError error)
{
    return bits.Overread() ? ZstdError::SequencesEnd : error;
}

}  // namespace

BlockDecoder::BlockDecoder() : literals(new uint8_t[kBlockMax + kCopySlack]) { StartFrame(); }

void BlockDecoder::StartFrame()
{
    huffman.maxBits = 0;
    active[0] = active[1] = active[2] = nullptr;
    repeats[0] = 1;
    repeats[1] = 4;
    repeats[2] = 8;
}

ZstdError BlockDecoder::ReadLiterals(const uint8_t* data, size_t size, size_t blockMax, size_t& used)
{
    if (size == 0)
        return ZstdError::Literals;
    unsigned type = data[0] & 3;
    unsigned format = (data[0] >> 2) & 3;
    if (type < 2) {
        size_t header, count;
        if (format == 1) {
            header = 2;
            if (size < header)
                return ZstdError::Literals;
            count = (data[0] >> 4) + (size_t(data[1]) << 4);
        } else if (format == 3) {
            header = 3;
            if (size < header)
                return ZstdError::Literals;
            count = (data[0] >> 4) + (size_t(data[1]) << 4) + (size_t(data[2]) << 12);
        } else {
            header = 1;
            count = data[0] >> 3;
        }
        if (count > blockMax)
            return ZstdError::Literals;
        if (type == 0) {
            if (size - header < count)
                return ZstdError::Literals;
            std::memcpy(literals.get(), data + header, count);
            used = header + count;
        } else {
            if (size - header < 1)
                return ZstdError::Literals;
            std::memset(literals.get(), data[header], count);
            used = header + 1;
        }
        literalCount = count;
        return ZstdError::None;
    }
    size_t header = format < 2 ? 3 : format + 2;
    if (size < header)
        return ZstdError::Literals;
    uint64_t fields = 0;
    for (size_t i = 0; i < header; ++i)
        fields |= uint64_t(data[i]) << (8 * i);
    unsigned width = format < 2 ? 10 : format == 2 ? 14 : 18;
    size_t count = static_cast<size_t>((fields >> 4) & ((1u << width) - 1));
    size_t compressed = static_cast<size_t>((fields >> (4 + width)) & ((1u << width) - 1));
    if (count > blockMax || compressed > size - header)
        return ZstdError::Literals;
    const uint8_t* streams = data + header;
    size_t streamsSize = compressed;
    if (type == 2) {
        size_t tree;
        ZstdError error = ReadHuffmanTable(streams, streamsSize, huffman, tree);
        if (error != ZstdError::None) {
            huffman.maxBits = 0;
            return error;
        }
        streams += tree;
        streamsSize -= tree;
    } else if (!huffman.maxBits) {
        return ZstdError::Huffman;
    }
    ZstdError error = format == 0 ? DecodeHuffmanStream(huffman, streams, streamsSize, literals.get(), count)
                                  : DecodeHuffmanStreams(huffman, streams, streamsSize, literals.get(), count);
    if (error != ZstdError::None)
        return error;
    literalCount = count;
    used = header + compressed;
    return ZstdError::None;
}

ZstdError BlockDecoder::ReadTables(const uint8_t* data, size_t size, size_t& used)
{
    used = 0;
    if (size == 0)
        return ZstdError::Sequences;
    unsigned modes = data[0];
    if (modes & 3)
        return ZstdError::ReservedBits;
    used = 1;
    const Defaults& defaults = DefaultTables();
    for (unsigned kind = 0; kind < 3; ++kind) {
        unsigned mode = (modes >> (6 - 2 * kind)) & 3;
        if (mode == 0) {
            active[kind] = &defaults.tables[kind];
        } else if (mode == 1) {
            if (used >= size || data[used] > kMaxSymbol[kind])
                return ZstdError::Sequences;
            SequenceTable& table = custom[kind];
            table.log = 0;
            table.rows[0].nextBase = 0;
            table.rows[0].stateBits = 0;
            SetCode(table.rows[0], kind, data[used]);
            active[kind] = &table;
            ++used;
        } else if (mode == 2) {
            FseDistribution distribution;
            size_t length = ReadFseDistribution(data + used, size - used, kMaxLog[kind], kMaxSymbol[kind], distribution);
            if (!length || !BuildTable(distribution, kind, custom[kind])) {
                active[kind] = nullptr;
                return ZstdError::FseTable;
            }
            active[kind] = &custom[kind];
            used += length;
        } else if (!active[kind]) {
            return ZstdError::Sequences;
        }
    }
    return ZstdError::None;
}

ZstdError BlockDecoder::Decode(const uint8_t* data, size_t size, size_t blockMax, Window& window, size_t& decoded)
{
    size_t used;
    ZstdError error = ReadLiterals(data, size, blockMax, used);
    if (error != ZstdError::None)
        return error;
    data += used;
    size -= used;
    if (size == 0)
        return ZstdError::Sequences;
    unsigned count;
    if (data[0] < 128) {
        count = data[0];
        used = 1;
    } else if (data[0] < 255) {
        if (size < 2)
            return ZstdError::Sequences;
        count = ((data[0] - 128u) << 8) + data[1];
        used = 2;
    } else {
        if (size < 3)
            return ZstdError::Sequences;
        count = data[1] + (unsigned(data[2]) << 8) + 0x7F00;
        used = 3;
    }
    data += used;
    size -= used;
    if (count == 0) {
        // The block is its literals alone; nothing may follow the count.
        if (size != 0)
            return ZstdError::ExtraBytes;
        std::memcpy(window.BlockStart(), literals.get(), literalCount);
        decoded = literalCount;
        return ZstdError::None;
    }
    error = ReadTables(data, size, used);
    if (error != ZstdError::None)
        return error;
    return Execute(data + used, size - used, count, blockMax, window, decoded);
}

ZstdError BlockDecoder::Execute(const uint8_t* stream, size_t size, unsigned count, size_t blockMax, Window& window,
                                size_t& decoded)
{
    BackwardBits bits;
    if (!bits.Start(stream, size))
        return ZstdError::Sequences;
    const SequenceRow* literalRows = active[0]->rows;
    const SequenceRow* offsetRows = active[1]->rows;
    const SequenceRow* matchRows = active[2]->rows;
    unsigned literalState = static_cast<unsigned>(bits.Read(active[0]->log));
    unsigned offsetState = static_cast<unsigned>(bits.Read(active[1]->log));
    unsigned matchState = static_cast<unsigned>(bits.Read(active[2]->log));
    uint8_t* const start = window.BlockStart();
    const uint8_t* const near = window.NearStart();
    uint8_t* out = start;
    uint8_t* const end = start + blockMax;
    const uint8_t* literal = literals.get();
    const uint8_t* const literalEnd = literal + literalCount;
    uint32_t rep0 = repeats[0], rep1 = repeats[1], rep2 = repeats[2];
    for (unsigned i = 0; i < count; ++i) {
        bits.Reload();
        // Copies, so that the writes below cannot make the compiler load them again.
        const SequenceRow of = offsetRows[offsetState];
        const SequenceRow ml = matchRows[matchState];
        const SequenceRow ll = literalRows[literalState];
        uint32_t offsetValue = of.base + static_cast<uint32_t>(bits.Read(of.extraBits));
        size_t matchLength = ml.base + static_cast<size_t>(bits.Read(ml.extraBits));
        if (of.extraBits + ml.extraBits + ll.extraBits > 56)
            bits.Reload();
        size_t literalLength = ll.base + static_cast<size_t>(bits.Read(ll.extraBits));
        uint32_t offset;
        if (offsetValue > 3) {
            offset = offsetValue - 3;
            rep2 = rep1;
            rep1 = rep0;
            rep0 = offset;
        } else {
            unsigned index = offsetValue - 1 + (literalLength == 0);
            if (index == 0) {
                offset = rep0;
            } else {
                offset = index == 1 ? rep1 : index == 2 ? rep2 : rep0 - 1;
                if (offset == 0)
                    return Failed(bits, ZstdError::ZeroOffset);
                if (index != 1)
                    rep2 = rep1;
                rep1 = rep0;
                rep0 = offset;
            }
        }
        if (i + 1 < count) {
            bits.Reload();
            literalState = ll.nextBase + static_cast<unsigned>(bits.Read(ll.stateBits));
            matchState = ml.nextBase + static_cast<unsigned>(bits.Read(ml.stateBits));
            offsetState = of.nextBase + static_cast<unsigned>(bits.Read(of.stateBits));
        }
        if (literalLength > static_cast<size_t>(literalEnd - literal))
            return Failed(bits, ZstdError::Sequences);
        if (literalLength + matchLength > static_cast<size_t>(end - out))
            return Failed(bits, ZstdError::BlockSize);
        if (literalLength) {
            WildCopy16(out, literal, literalLength);
            out += literalLength;
            literal += literalLength;
        }
        if (offset <= static_cast<size_t>(out - near)) {
            CopyNear(out, offset, matchLength);
        } else {
            bool readFailed;
            if (!window.CopyMatch(out, offset, matchLength, readFailed))
                return readFailed ? ZstdError::Read : Failed(bits, ZstdError::Offset);
        }
        out += matchLength;
    }
    bits.Reload();
    if (!bits.Exhausted())
        return ZstdError::SequencesEnd;
    size_t rest = static_cast<size_t>(literalEnd - literal);
    if (rest > static_cast<size_t>(end - out))
        return ZstdError::BlockSize;
    std::memcpy(out, literal, rest);
    out += rest;
    repeats[0] = rep0;
    repeats[1] = rep1;
    repeats[2] = rep2;
    decoded = static_cast<size_t>(out - start);
    return ZstdError::None;
}
