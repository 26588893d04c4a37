// Huffman tree descriptions (direct or FSE-compressed weights) and the stream decoders.
#include "zstd/huffman.h"

#include "zstd/bits.h"
#include "zstd/cpu.h"
#include "zstd/fse.h"

#include <algorithm>
#include <cstring>

namespace {

// Reads the weights' FSE stream bit by bit from the end. Past the first bit it reads zeros, as
// the last state updates of the stream assume; `left` then goes negative.
class WeightBits {
public:
    bool Start(const uint8_t* stream, size_t size)
    {
        if (size == 0 || stream[size - 1] == 0)
            return false;
        data = stream;
        left = static_cast<long>(size * 8) - static_cast<long>(8 - HighBit32(stream[size - 1]));
        return true;
    }
    unsigned Read(unsigned count)
    {
        unsigned value = 0;
        for (unsigned i = 0; i < count; ++i) {
            --left;
            value <<= 1;
            if (left >= 0)
                value |= (data[left >> 3] >> (left & 7)) & 1;
        }
        return value;
    }
    long left = 0;

private:
    const uint8_t* data = nullptr;
};

// The weights of an FSE-compressed description: two states taking turns until the stream ends.
ZstdError DecodeWeights(const uint8_t* data, size_t size, uint8_t* weights, size_t& count)
{
    FseDistribution distribution;
    size_t used = ReadFseDistribution(data, size, 6, 255, distribution);
    FseRow rows[64];
    if (!used || !BuildFseRows(distribution, rows))
        return ZstdError::Huffman;
    WeightBits bits;
    if (!bits.Start(data + used, size - used))
        return ZstdError::Huffman;
    unsigned state1 = bits.Read(distribution.log);
    unsigned state2 = bits.Read(distribution.log);
    if (bits.left < 0)
        return ZstdError::HuffmanStates;
    count = 0;
    for (;;) {
        if (count + 2 > 255)
            return ZstdError::Huffman;
        weights[count++] = rows[state1].symbol;
        state1 = rows[state1].nextBase + bits.Read(rows[state1].bits);
        if (bits.left < 0) {
            weights[count++] = rows[state2].symbol;
            break;
        }
        weights[count++] = rows[state2].symbol;
        state2 = rows[state2].nextBase + bits.Read(rows[state2].bits);
        if (bits.left < 0) {
            if (count + 1 > 255)
                return ZstdError::Huffman;
            weights[count++] = rows[state1].symbol;
            break;
        }
    }
    return ZstdError::None;
}

}  // namespace

ZstdError ReadHuffmanTable(const uint8_t* data, size_t size, HuffmanTable& table, size_t& used)
{
    if (size == 0)
        return ZstdError::Huffman;
    uint8_t weights[256];
    size_t count;
    unsigned header = data[0];
    if (header < 128) {
        if (header == 0 || header + 1 > size)
            return ZstdError::Huffman;
        ZstdError error = DecodeWeights(data + 1, header, weights, count);
        if (error != ZstdError::None)
            return error;
        used = 1 + header;
    } else {
        count = header - 127;
        used = 1 + (count + 1) / 2;
        if (used > size)
            return ZstdError::Huffman;
        for (size_t i = 0; i < count; ++i)
            weights[i] = (i & 1) ? data[1 + i / 2] & 15 : data[1 + i / 2] >> 4;
    }
    uint32_t total = 0;
    for (size_t i = 0; i < count; ++i) {
        if (weights[i] > kHuffmanMaxBits)
            return ZstdError::Huffman;
        if (weights[i])
            total += uint32_t(1) << (weights[i] - 1);
    }
    if (total == 0)
        return ZstdError::Huffman;
    unsigned maxBits = HighBit32(total) + 1;
    if (maxBits > kHuffmanMaxBits)
        return ZstdError::Huffman;
    uint32_t rest = (uint32_t(1) << maxBits) - total;
    if (rest & (rest - 1))
        return ZstdError::Huffman;
    weights[count++] = static_cast<uint8_t>(HighBit32(rest) + 1);
    unsigned ranks[kHuffmanMaxBits + 2] = {};
    for (size_t i = 0; i < count; ++i)
        ++ranks[weights[i]];
    if (ranks[1] < 2 || (ranks[1] & 1))
        return ZstdError::Huffman;
    // Rows of the longest codes come first: weight 1, then 2, and so on, in symbol order.
    unsigned start[kHuffmanMaxBits + 2];
    unsigned position = 0;
    for (unsigned w = 1; w <= maxBits; ++w) {
        start[w] = position;
        position += ranks[w] << (w - 1);
    }
    for (size_t s = 0; s < count; ++s) {
        unsigned w = weights[s];
        if (!w)
            continue;
        uint16_t row = static_cast<uint16_t>(s | ((maxBits + 1 - w) << 8));
        unsigned span = 1u << (w - 1);
        for (unsigned i = 0; i < span; ++i)
            table.rows[start[w] + i] = row;
        start[w] += span;
    }
    table.maxBits = maxBits;
    return ZstdError::None;
}

namespace {

inline uint8_t DecodeSymbol(const HuffmanTable& table, BackwardBits& bits)
{
    uint16_t row = table.rows[bits.Peek(table.maxBits)];
    bits.Skip(row >> 8);
    return static_cast<uint8_t>(row);
}

// DecodeSymbol() in the fast loops, which refill before 63 bits of the word are read (a table
// always reads at least 1 bit).
VEY_INLINE uint8_t DecodeSymbolNear(const uint16_t* rows, unsigned maxBits, BackwardBits& bits)
{
    unsigned row = rows[bits.PeekNearSome(maxBits)];
    bits.Skip(row >> 8);
    return static_cast<uint8_t>(row);
}

// Decodes symbols one at a time up to `end`, refilling as it goes.
inline void DecodeTail(const HuffmanTable& table, BackwardBits& bits, uint8_t* out, uint8_t* end)
{
    while (out < end && !bits.Overread()) {
        bits.Reload();
        *out++ = DecodeSymbol(table, bits);
    }
}

// A stream must be read exactly to its start. A miss, like a last byte without the end marker,
// is told apart from other damage, since some decoders let it pass.
inline ZstdError StreamEnd(BackwardBits& bits)
{
    bits.Reload();
    return bits.Exhausted() ? ZstdError::None : ZstdError::HuffmanEnd;
}

// Bytes a round of the fast loops reads at most: five symbols of at most 11 bits after a refill
// (which leaves at most 7 bits of the word read) stay within 62 bits.
constexpr size_t kRoundBytes = 7;
constexpr unsigned kRoundSymbols = 5;

// Decodes the four streams side by side while each has room for whole rounds. The fourth segment
// is the shortest, so `end` (its end) bounds the loop. The rounds that every stream can take are
// counted up front, so that the loop itself checks nothing. The table, the bits and the outputs
// are held in locals, which the symbols' byte stores cannot be taken to change.
VEY_INLINE void DecodeInterleaved(const HuffmanTable& table, BackwardBits* bits, uint8_t** outs, const uint8_t* end)
{
    const uint16_t* rows = table.rows;
    const unsigned maxBits = table.maxBits;
    BackwardBits b0 = bits[0], b1 = bits[1], b2 = bits[2], b3 = bits[3];
    uint8_t *o0 = outs[0], *o1 = outs[1], *o2 = outs[2], *o3 = outs[3];
    for (;;) {
        size_t rounds = std::min({static_cast<size_t>(end - o3) / kRoundSymbols, b0.RoomyRefills(kRoundBytes),
                                  b1.RoomyRefills(kRoundBytes), b2.RoomyRefills(kRoundBytes),
                                  b3.RoomyRefills(kRoundBytes)});
        if (rounds == 0)
            break;
        do {
            b0.ReloadRoomy();
            b1.ReloadRoomy();
            b2.ReloadRoomy();
            b3.ReloadRoomy();
            VEY_UNROLL(5)
            for (unsigned k = 0; k < kRoundSymbols; ++k) {
                o0[k] = DecodeSymbolNear(rows, maxBits, b0);
                o1[k] = DecodeSymbolNear(rows, maxBits, b1);
                o2[k] = DecodeSymbolNear(rows, maxBits, b2);
                o3[k] = DecodeSymbolNear(rows, maxBits, b3);
            }
            o0 += kRoundSymbols;
            o1 += kRoundSymbols;
            o2 += kRoundSymbols;
            o3 += kRoundSymbols;
        } while (--rounds);
    }
    bits[0] = b0, bits[1] = b1, bits[2] = b2, bits[3] = b3;
    outs[0] = o0, outs[1] = o1, outs[2] = o2, outs[3] = o3;
}

void DecodeInterleavedPlain(const HuffmanTable& table, BackwardBits* bits, uint8_t** outs, const uint8_t* end)
{
    DecodeInterleaved(table, bits, outs, end);
}

VEY_TARGET_BMI2 void DecodeInterleavedBmi2(const HuffmanTable& table, BackwardBits* bits, uint8_t** outs,
                                           const uint8_t* end)
{
    DecodeInterleaved(table, bits, outs, end);
}

}  // namespace

ZstdError DecodeHuffmanStream(const HuffmanTable& table, const uint8_t* data, size_t size, uint8_t* out, size_t count)
{
    BackwardBits bits;
    if (!bits.Start(data, size))
        return size ? ZstdError::HuffmanEnd : ZstdError::Huffman;
    uint8_t* end = out + count;
    // Whole rounds while there is room, counted up front as in the four-stream loop. The table
    // and the bits are held in locals, which the symbols' byte stores cannot be taken to change.
    const uint16_t* rows = table.rows;
    const unsigned maxBits = table.maxBits;
    BackwardBits fast = bits;
    while (size_t rounds = std::min(static_cast<size_t>(end - out) / kRoundSymbols, fast.RoomyRefills(kRoundBytes))) {
        do {
            fast.ReloadRoomy();
            for (unsigned k = 0; k < kRoundSymbols; ++k)
                out[k] = DecodeSymbolNear(rows, maxBits, fast);
            out += kRoundSymbols;
        } while (--rounds);
    }
    bits = fast;
    DecodeTail(table, bits, out, end);
    return StreamEnd(bits);
}

ZstdError DecodeHuffmanStreams(const HuffmanTable& table, const uint8_t* data, size_t size, uint8_t* out,
                               size_t count)
{
    if (size < 10 || count < 6)
        return ZstdError::Huffman;
    size_t sizes[4];
    sizes[0] = data[0] | (data[1] << 8);
    sizes[1] = data[2] | (data[3] << 8);
    sizes[2] = data[4] | (data[5] << 8);
    size_t firstThree = sizes[0] + sizes[1] + sizes[2];
    if (firstThree + 6 + 1 > size)
        return ZstdError::Huffman;
    sizes[3] = size - 6 - firstThree;
    size_t segment = (count + 3) / 4;
    if (3 * segment > count)
        return ZstdError::Huffman;
    BackwardBits bits[4];
    uint8_t* outs[4];
    uint8_t* ends[4];
    const uint8_t* stream = data + 6;
    for (int i = 0; i < 4; ++i) {
        if (!bits[i].Start(stream, sizes[i]))
            return sizes[i] ? ZstdError::HuffmanEnd : ZstdError::Huffman;
        stream += sizes[i];
        outs[i] = out + i * segment;
        ends[i] = i == 3 ? out + count : outs[i] + segment;
    }
    if (HasBmi2())
        DecodeInterleavedBmi2(table, bits, outs, ends[3]);
    else
        DecodeInterleavedPlain(table, bits, outs, ends[3]);
    for (int i = 0; i < 4; ++i) {
        DecodeTail(table, bits[i], outs[i], ends[i]);
        ZstdError error = StreamEnd(bits[i]);
        if (error != ZstdError::None)
            return error;
    }
    return ZstdError::None;
}
