// Field access for the discovery datagrams: big-endian numbers written to a byte string, and a
// reader that takes fields front to back and never moves past the bytes it was given.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

inline void PutBigEndian(std::string& out, uint64_t value, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i)
        out += static_cast<char>(value >> (8 * i));
}

// A field that does not fit in what is left fails and moves nothing.
class FieldReader {
public:
    FieldReader(const unsigned char* at, const unsigned char* end) : at(at), end(end) {}

    size_t Left() const { return static_cast<size_t>(end - at); }
    bool Bytes(size_t count, const unsigned char*& bytes)
    {
        if (Left() < count)
            return false;
        bytes = at;
        at += count;
        return true;
    }
    bool BigEndian(size_t count, uint64_t& value)
    {
        const unsigned char* bytes;
        if (!Bytes(count, bytes))
            return false;
        value = 0;
        for (size_t i = 0; i < count; ++i)
            value = value << 8 | bytes[i];
        return true;
    }
    // A length byte, then that many bytes.
    bool Counted(const unsigned char*& bytes, size_t& count)
    {
        uint64_t length;
        if (!BigEndian(1, length) || !Bytes(static_cast<size_t>(length), bytes))
            return false;
        count = static_cast<size_t>(length);
        return true;
    }

private:
    const unsigned char* at;
    const unsigned char* const end;
};
