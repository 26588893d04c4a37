// FSE tables: the distribution a table description carries, and the decoding table built from
// it (one row per state: the symbol, and how to reach the next state).
#pragma once
#include <cstddef>
#include <cstdint>

struct FseRow {
    uint16_t nextBase;  // added to the bits read to give the next state
    uint8_t bits;       // bits to read for the next state
    uint8_t symbol;
};

struct FseDistribution {
    int16_t counts[256];  // per symbol; -1 for "less than 1"
    unsigned symbols;     // one past the last symbol described
    unsigned log;         // accuracy log: the table has 1 << log rows
};

// Reads a table description from the front of `data` whose accuracy log may not exceed
// `maxLog` nor its symbols `maxSymbol`. Returns the bytes it used, or 0 when it is malformed.
size_t ReadFseDistribution(const uint8_t* data, size_t size, unsigned maxLog, unsigned maxSymbol,
                           FseDistribution& distribution);

// Fills the 1 << distribution.log rows of `rows`; false when the counts do not fill it exactly.
bool BuildFseRows(const FseDistribution& distribution, FseRow* rows);
