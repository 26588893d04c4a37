// Sequences: a compressed block's sequences read from their bit stream and carried out into the
// window. Reading runs a few sequences ahead of the copies, so that each match's source is
// already on its way into the cache when its copy comes.
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
};

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
