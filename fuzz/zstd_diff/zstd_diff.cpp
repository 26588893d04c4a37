// Differential fuzz target of the Zstandard decoder: the input as a stream of frames, decoded by
// ours (pushed whole, or in pieces of 1 or 13 bytes, as the input's length picks) and by
// libzstd; see compare.h for what must agree.
#include "compare.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    size_t chunk = (size & 3) == 0 ? 1 : (size & 3) == 1 ? 13 : size;
    fuzz_zstd::Compare(data, size, chunk ? chunk : 1);
    return 0;
}
