// FSE table descriptions and the decoding tables built from them.
#include "zstd/fse.h"

#include "zstd/bits.h"

size_t ReadFseDistribution(const uint8_t* data, size_t size, unsigned maxLog, unsigned maxSymbol,
                           FseDistribution& distribution)
{
    if (size == 0)
        return 0;
    ForwardBits bits(data, size);
    unsigned log = bits.Read(4) + 5;
    if (log > maxLog)
        return 0;
    int remaining = (1 << log) + 1;
    int threshold = 1 << log;
    unsigned width = log + 1;
    unsigned symbol = 0;
    bool previousZero = false;
    distribution.symbols = 0;
    while (remaining > 1) {
        if (previousZero) {
            unsigned repeat;
            do {
                repeat = bits.Read(2);
                symbol += repeat;
                if (symbol > maxSymbol + 1)
                    return 0;
            } while (repeat == 3);
            for (unsigned s = distribution.symbols; s < symbol && s < 256; ++s)
                distribution.counts[s] = 0;
            if (symbol > maxSymbol)
                return 0;
        }
        if (symbol > maxSymbol)
            return 0;
        int top = 2 * threshold - 1 - remaining;
        int value = static_cast<int>(bits.Peek(width - 1)) & (threshold - 1);
        if (value < top) {
            bits.Skip(width - 1);
        } else {
            value = static_cast<int>(bits.Peek(width)) & (2 * threshold - 1);
            if (value >= threshold)
                value -= top;
            bits.Skip(width);
        }
        int count = value - 1;
        remaining -= count < 0 ? -count : count;
        distribution.counts[symbol++] = static_cast<int16_t>(count);
        distribution.symbols = symbol;
        previousZero = count == 0;
        if (remaining < 1)
            return 0;
        while (remaining < threshold) {
            --width;
            threshold >>= 1;
        }
    }
    if (remaining != 1 || bits.Used() > size)
        return 0;
    distribution.log = log;
    return bits.Used();
}

bool BuildFseRows(const FseDistribution& distribution, FseRow* rows)
{
    unsigned size = 1u << distribution.log;
    unsigned high = size - 1;
    uint16_t next[256];
    for (unsigned s = 0; s < distribution.symbols; ++s) {
        if (distribution.counts[s] == -1) {
            rows[high--].symbol = static_cast<uint8_t>(s);
            next[s] = 1;
        } else {
            next[s] = static_cast<uint16_t>(distribution.counts[s]);
        }
    }
    unsigned step = (size >> 1) + (size >> 3) + 3;
    unsigned position = 0;
    for (unsigned s = 0; s < distribution.symbols; ++s) {
        for (int i = 0; i < distribution.counts[s]; ++i) {
            rows[position].symbol = static_cast<uint8_t>(s);
            do
                position = (position + step) & (size - 1);
            while (position > high);
        }
    }
    if (position != 0)
        return false;
    for (unsigned u = 0; u < size; ++u) {
        unsigned state = next[rows[u].symbol]++;
        unsigned bits = distribution.log - HighBit32(state);
        rows[u].bits = static_cast<uint8_t>(bits);
        rows[u].nextBase = static_cast<uint16_t>((state << bits) - size);
    }
    return true;
}
