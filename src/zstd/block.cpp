// Compressed blocks: the literals section and the sequence tables, then the sequences carried
// out into the window.
#include "zstd/block.h"

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
    table.farRows = 0;
    for (unsigned u = 0; u < size; ++u) {
        table.rows[u].nextBase = rows[u].nextBase;
        table.rows[u].stateBits = rows[u].bits;
        SetCode(table.rows[u], kind, rows[u].symbol);
        table.farRows += table.rows[u].extraBits >= kFarBits;
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
            table.farRows = kind == 1 && data[used] >= kFarBits;
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
    SequenceInput input{{active[0], active[1], active[2]}, repeats, literals.get(), literalCount};
    return ExecuteSequences(data + used, size - used, count, input, blockMax, window, decoded);
}
