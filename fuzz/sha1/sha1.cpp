// Fuzz target of SHA-1: the digest of the input in one call with the portable block function must
// equal the digest fed in two parts, split where the first two bytes say, with the SHA-instruction
// block function where the CPU has it.
#include "crypto/sha1.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    size_t split = (static_cast<size_t>(data[0]) << 8 | data[1]) % (size - 1);
    data += 2;
    size -= 2;
    uint8_t portable[kSha1DigestSize], other[kSha1DigestSize];
    Sha1Buffer(data, size, portable, Sha1CompressPortable);
    Sha1Compress hardware = Sha1HardwareCompress();
    Sha1Context context;
    Sha1Init(context, hardware ? hardware : Sha1CompressPortable);
    Sha1Update(context, data, split);
    Sha1Update(context, data + split, size - split);
    Sha1Final(context, other);
    if (std::memcmp(portable, other, sizeof(portable)) != 0) {
        std::fprintf(stderr, "sha1: the block functions disagree\n");
        std::abort();
    }
    return 0;
}
