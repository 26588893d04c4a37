// Bit readers of the two directions the format uses: BackwardBits reads a stream from its last
// byte towards its first (the sequences and the Huffman streams, which end in a 1-bit marker);
// ForwardBits reads little-endian bit fields from the front (the FSE table descriptions).
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(_MSC_VER)
#include <intrin.h>
#endif

inline uint64_t LoadLe64(const uint8_t* p)
{
    uint64_t value;
    std::memcpy(&value, p, 8);
    return value;
}

// The index of the highest set bit of a value other than 0.
inline unsigned HighBit32(uint32_t value)
{
#if defined(_MSC_VER)
    unsigned long index;
    _BitScanReverse(&index, value);
    return static_cast<unsigned>(index);
#else
    return 31 - static_cast<unsigned>(__builtin_clz(value));
#endif
}

// Holds up to 64 bits of the stream, the next bits to read at the top. `consumed` counts the
// bits of the held word already read; above 64 the stream was read past its first byte.
class BackwardBits {
public:
    // False when the stream is empty or its last byte (which holds the marker) is 0.
    bool Start(const uint8_t* data, size_t size)
    {
        if (size == 0 || data[size - 1] == 0)
            return false;
        begin = data;
        unsigned marker = 8 - HighBit32(data[size - 1]);
        if (size >= 8) {
            cursor = data + size - 8;
            word = LoadLe64(cursor);
            consumed = marker;
        } else {
            cursor = data;
            word = 0;
            for (size_t i = 0; i < size; ++i)
                word |= uint64_t(data[i]) << (8 * i);
            consumed = marker + 8 * static_cast<unsigned>(8 - size);
        }
        return true;
    }

    // The next `count` bits (0 to 56) without consuming them.
    uint64_t Peek(unsigned count) const { return ((word << (consumed & 63)) >> 1) >> ((63 - count) & 63); }
    void Skip(unsigned count) { consumed += count; }
    uint64_t Read(unsigned count)
    {
        uint64_t value = Peek(count);
        consumed += count;
        return value;
    }
    // Peek() and Read() for a reader that has read at most 63 bits of its word since a refill:
    // no masks on the shifts. PeekNearSome() is one shift shorter and takes at least 1 bit.
    uint64_t PeekNear(unsigned count) const { return ((word << consumed) >> 1) >> (63 - count); }
    uint64_t PeekNearSome(unsigned count) const { return (word << consumed) >> (64 - count); }
    uint64_t ReadNear(unsigned count)
    {
        uint64_t value = PeekNear(count);
        consumed += count;
        return value;
    }

    // Refills the held word so that at least 56 bits are ready unless the stream's start is near.
    void Reload()
    {
        if (consumed > 64)
            return;
        if (cursor >= begin + 8) {
            cursor -= consumed >> 3;
            consumed &= 7;
            word = LoadLe64(cursor);
            return;
        }
        if (cursor == begin)
            return;
        size_t back = consumed >> 3;
        if (back > static_cast<size_t>(cursor - begin))
            back = static_cast<size_t>(cursor - begin);
        cursor -= back;
        consumed -= static_cast<unsigned>(back * 8);
        word = LoadLe64(cursor);
    }

    // Reload without checks, for a stream known to have room (RoomyRefills). A refill moves the
    // cursor back by at most 8 bytes.
    void ReloadRoomy()
    {
        cursor -= consumed >> 3;
        consumed &= 7;
        word = LoadLe64(cursor);
    }

    // How many ReloadRoomy() calls in a row keep 8 bytes to load before the stream's start when
    // at most `step` bytes (up to 8) are read between two of them.
    size_t RoomyRefills(size_t step) const
    {
        size_t room = static_cast<size_t>(cursor - begin);
        return room < 8 ? 0 : (room - 8) / step + 1;
    }
    bool Overread() const { return consumed > 64; }
    // Every bit read, and no more.
    bool Exhausted() const { return cursor == begin && consumed == 64; }

private:
    const uint8_t* begin = nullptr;
    const uint8_t* cursor = nullptr;
    uint64_t word = 0;
    unsigned consumed = 0;
};

// Little-endian bit fields read from the front; bits past the end read as 0, and Used() tells
// how many bytes the fields covered so that the caller can check them against the size.
class ForwardBits {
public:
    ForwardBits(const uint8_t* data, size_t size) : data(data), size(size) {}

    uint32_t Peek(unsigned count) const
    {
        uint64_t value = 0;
        size_t byte = position >> 3;
        for (unsigned i = 0; i < 5 && byte + i < size; ++i)
            value |= uint64_t(data[byte + i]) << (8 * i);
        return static_cast<uint32_t>((value >> (position & 7)) & ((uint64_t(1) << count) - 1));
    }
    void Skip(unsigned count) { position += count; }
    uint32_t Read(unsigned count)
    {
        uint32_t value = Peek(count);
        position += count;
        return value;
    }
    size_t Used() const { return (position + 7) >> 3; }

private:
    const uint8_t* data;
    size_t size;
    size_t position = 0;
};
