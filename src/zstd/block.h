// BlockDecoder: decodes the compressed blocks of a frame (literals, then the sequences executed
// straight into the window) and keeps what later blocks of the frame reuse: the Huffman table,
// the three sequence tables and the repeat offsets.
#pragma once
#include "zstd/decoder.h"
#include "zstd/huffman.h"
#include "zstd/sequences.h"
#include "zstd/window.h"

#include <cstddef>
#include <cstdint>
#include <memory>

class BlockDecoder {
public:
    BlockDecoder();

    // Forgets the tables and offsets of the previous frame.
    void StartFrame();
    // Decodes a compressed block's content into window.BlockStart(); `decoded` is its size, at
    // most `blockMax`.
    ZstdError Decode(const uint8_t* data, size_t size, size_t blockMax, Window& window, size_t& decoded);

    size_t MemoryHeld() const { return sizeof(*this) + kBlockMax + kCopySlack; }

private:
    ZstdError ReadLiterals(const uint8_t* data, size_t size, size_t blockMax, size_t& used);
    ZstdError ReadTables(const uint8_t* data, size_t size, size_t& used);

    HuffmanTable huffman;
    SequenceTable custom[3];         // literals lengths, offsets, match lengths
    const SequenceTable* active[3];  // the tables in use: predefined or custom; null before any
    uint32_t repeats[3];
    std::unique_ptr<uint8_t[]> literals;
    size_t literalCount = 0;
};
