// Sequences: a compressed block's sequences read from their bit stream and carried out into the
// window.
#pragma once
#include "zstd/decoder.h"
#include "zstd/window.h"

#include <cstddef>
#include <cstdint>

// One state of a sequence table: the code's baseline and extra bits beside the FSE step.
struct SequenceRow {
    uint32_t base;
    uint16_t nextBase;
    uint8_t stateBits;
    uint8_t extraBits;
};

struct SequenceTable {
    SequenceRow rows[512];
    unsigned log;
    unsigned farRows;  // of an offsets table: the rows of offsets of kFarBits bits or more
};

// Offsets of this many bits or more reach beyond what the cache likely holds. A block whose
// offsets table gives at least 1 / kFarShare of its states to such offsets reads its sequences
// ahead of their copies and hints their sources to the cache.
constexpr unsigned kFarBits = 20;
constexpr unsigned kFarShare = 8;

// What the sequences of one block work from: the tables of literals lengths, offsets and match
// lengths, the repeat offsets (updated when the block succeeds) and the block's literals.
struct SequenceInput {
    const SequenceTable* tables[3];
    uint32_t* repeats;
    const uint8_t* literals;
    size_t literalCount;
};

// Carries out the `count` sequences of `stream` into window.BlockStart(), then the literals left
// over; `decoded` is the block's size, at most `blockMax`.
ZstdError ExecuteSequences(const uint8_t* stream, size_t size, unsigned count, const SequenceInput& input,
                           size_t blockMax, Window& window, size_t& decoded);
