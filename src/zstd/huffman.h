// Huffman tables of the literals: read from a tree description, and used to decode one stream
// or four interleaved ones.
#pragma once
#include "zstd/decoder.h"

#include <cstddef>
#include <cstdint>

constexpr unsigned kHuffmanMaxBits = 11;

struct HuffmanTable {
    // Indexed by the next maxBits bits of a stream: the symbol (low byte) and its length (high).
    uint16_t rows[1 << kHuffmanMaxBits];
    unsigned maxBits = 0;  // 0 while the frame has no table yet
};

// Reads a tree description from the front of `data` into `table`; `used` is its size.
ZstdError ReadHuffmanTable(const uint8_t* data, size_t size, HuffmanTable& table, size_t& used);

// Decodes `count` symbols from the single stream `data`, which they must consume exactly.
ZstdError DecodeHuffmanStream(const HuffmanTable& table, const uint8_t* data, size_t size, uint8_t* out, size_t count);

// Decodes `count` symbols from four streams behind their jump table.
ZstdError DecodeHuffmanStreams(const HuffmanTable& table, const uint8_t* data, size_t size, uint8_t* out,
                               size_t count);
