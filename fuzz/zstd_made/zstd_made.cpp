// Fuzz target of the Zstandard decoder over frames that libzstd makes: the first 8 bytes of the
// input choose the settings (level, window, checksum, content size, an old file before the
// data, two frames, repeats of the data, and up to three damaged bytes), the rest is the data.
// The intact frames must decode to the data exactly; damaged, ours and libzstd must agree (see
// ../zstd_diff/compare.h).
#include "../zstd_diff/compare.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using fuzz_zstd::Bytes;
    if (size < 8)
        return 0;
    const uint8_t* settings = data;
    data += 8;
    size -= 8;
    int level = settings[0] % 23 - 3;
    int windowLog = settings[1] % 16 ? 10 + settings[1] % 16 : 0;
    bool checksum = settings[2] & 1, contentSize = settings[2] & 2, withPrefix = settings[2] & 4;
    bool twoFrames = settings[2] & 8;
    size_t repeats = 1 + (settings[2] >> 4);
    size_t prefixSize = withPrefix ? size * settings[3] / 256 : 0;
    const uint8_t* prefix = withPrefix ? data : nullptr;
    Bytes content;
    for (size_t i = 0; i < repeats; ++i)
        content.insert(content.end(), data + prefixSize, data + size);

    static ZSTD_CCtx* context = ZSTD_createCCtx();
    Bytes frames;
    for (int frame = 0; frame < (twoFrames ? 2 : 1); ++frame) {
        ZSTD_CCtx_reset(context, ZSTD_reset_session_and_parameters);
        ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, level);
        ZSTD_CCtx_setParameter(context, ZSTD_c_windowLog, windowLog);
        ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, checksum);
        ZSTD_CCtx_setParameter(context, ZSTD_c_contentSizeFlag, contentSize);
        if (prefix)
            ZSTD_CCtx_refPrefix(context, prefix, prefixSize);
        Bytes made(ZSTD_compressBound(content.size()));
        size_t length = ZSTD_compress2(context, made.data(), made.size(), content.data(), content.size());
        if (ZSTD_isError(length)) {
            std::fprintf(stderr, "zstd_made: libzstd cannot compress (%s)\n", ZSTD_getErrorName(length));
            std::abort();
        }
        frames.insert(frames.end(), made.begin(), made.begin() + length);
    }
    Bytes expected = content;
    if (twoFrames)
        expected.insert(expected.end(), content.begin(), content.end());
    if (expected.size() <= fuzz_zstd::kOutputMax) {
        Bytes decoded;
        ZstdError error = fuzz_zstd::DecodeOurs(frames.data(), frames.size(), 1 + settings[4] % 64, prefix, prefixSize,
                                                decoded);
        if (error != ZstdError::None || decoded != expected) {
            std::fprintf(stderr, "zstd_made: a made frame decodes wrong (%s, %zu bytes of %zu)\n",
                         ZstdErrorText(error), decoded.size(), expected.size());
            std::abort();
        }
    }
    unsigned damaged = settings[5] % 4;
    for (unsigned i = 0; i < damaged; ++i) {
        size_t at = (settings[6 + (i & 1)] * 2654435761u + i * 40503u) % frames.size();
        frames[at] ^= static_cast<uint8_t>(settings[5] | 1);
    }
    if (damaged)
        fuzz_zstd::Compare(frames.data(), frames.size(), 1 + settings[4] % 64, prefix, prefixSize);
    return 0;
}
