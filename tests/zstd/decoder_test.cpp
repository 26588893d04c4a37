// ZstdDecoder on known-answer frames, on frames made by Debian's zstd (levels, long windows,
// checksums, several frames, skippable frames, patches), pushed whole and in small pieces, and
// on damaged frames, limits and failing sinks.
#include "frames.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Decodes NAME.zst whole and in pieces of 1, 7 and 4099 bytes; each must give NAME.bin.
void ExpectDecodes(const std::string& name)
{
    Bytes frame = FrameFile(name + ".zst");
    Bytes expected = FrameFile(name + ".bin");
    for (size_t chunk : {size_t(0), size_t(1), size_t(7), size_t(4099)}) {
        Decoded decoded = Decode(frame, chunk);
        EXPECT_EQ(decoded.error, ZstdError::None) << name << " in pieces of " << chunk << ": " << ZstdErrorText(decoded.error);
        EXPECT_TRUE(decoded.output == expected) << name << " in pieces of " << chunk << ": " << decoded.output.size()
                                                << " bytes decoded, " << expected.size() << " expected";
    }
}

TEST(KnownAnswers, LargestCompressedBlock) { ExpectDecodes("block-128k"); }
TEST(KnownAnswers, FrameOfOneEmptyBlock) { ExpectDecodes("empty-block"); }
TEST(KnownAnswers, FirstBlockIsRle) { ExpectDecodes("rle-first-block"); }
TEST(KnownAnswers, NoSequencesInTheTwoByteForm) { ExpectDecodes("zeroSeq_2B"); }

TEST(KnownAnswers, MalformedFramesAreRefused)
{
    EXPECT_EQ(Decode(FrameFile("off0.bin.zst")).error, ZstdError::ZeroOffset);
    EXPECT_EQ(Decode(FrameFile("truncated_huff_state.zst")).error, ZstdError::HuffmanStates);
    EXPECT_EQ(Decode(FrameFile("zeroSeq_extraneous.zst")).error, ZstdError::ExtraBytes);
    EXPECT_STREQ(ZstdErrorText(ZstdError::ZeroOffset), "repeat offset of 0");
    EXPECT_STREQ(ZstdErrorText(ZstdError::HuffmanStates), "Huffman weights end before their states");
    EXPECT_STREQ(ZstdErrorText(ZstdError::ExtraBytes), "bytes left after a section of no sequences");
}

// Found by the fuzz targets: blocks that a strict reading of the frame's limits would refuse but
// that decode without risk, as libzstd decodes them.
TEST(FuzzFinds, RawAndRleBlocksAboveTheCompressedBlockLimit)
{
    Bytes rle = FrameFile("rle-block-above-128k.zst");
    for (size_t chunk : {size_t(0), size_t(1)}) {
        Decoded decoded = Decode(rle, chunk);
        EXPECT_EQ(decoded.error, ZstdError::None);
        EXPECT_TRUE(decoded.output == Bytes(199077, 0));
    }
    // A 2 MiB window, one last raw block of 200000 bytes.
    Bytes raw = {0x28, 0xB5, 0x2F, 0xFD, 0x00, 0x58};
    uint32_t header = 1 | (200000 << 3);
    raw.insert(raw.end(), {uint8_t(header), uint8_t(header >> 8), uint8_t(header >> 16)});
    Bytes content(200000);
    for (size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<uint8_t>(i * 31 + (i >> 9));
    raw.insert(raw.end(), content.begin(), content.end());
    for (size_t chunk : {size_t(0), size_t(1), size_t(70000)}) {
        Decoded decoded = Decode(raw, chunk);
        EXPECT_EQ(decoded.error, ZstdError::None);
        EXPECT_TRUE(decoded.output == content) << "in pieces of " << chunk;
    }
}

TEST(FuzzFinds, CompressedBlockDecodingAbove128KiBIsRefused)
{
    Bytes old = FrameFile("block-decodes-above-128k.old");
    MemoryHistory history(old);
    EXPECT_EQ(Decode(FrameFile("block-decodes-above-128k.zst"), 0, &history, old.size()).error, ZstdError::BlockSize);
}

TEST(FuzzFinds, CompressedBlockLargerThanASmallWindow)
{
    Decoded decoded = Decode(FrameFile("block-above-window.zst"));
    EXPECT_EQ(decoded.error, ZstdError::None);
    EXPECT_TRUE(decoded.output == Bytes(2052, 'a'));
}

TEST(FuzzFinds, StreamsNotReadExactlyAreRefused)
{
    EXPECT_EQ(Decode(FrameFile("huffman-bits-left.zst")).error, ZstdError::HuffmanEnd);
    EXPECT_EQ(Decode(FrameFile("huffman-bits-left-13.zst")).error, ZstdError::HuffmanEnd);
    EXPECT_EQ(Decode(FrameFile("huffman-no-end-marker.zst")).error, ZstdError::HuffmanEnd);
    EXPECT_EQ(Decode(FrameFile("sequences-past-start.zst")).error, ZstdError::SequencesEnd);
    EXPECT_EQ(Decode(FrameFile("sequences-bits-left.zst")).error, ZstdError::SequencesEnd);
    EXPECT_EQ(Decode(FrameFile("sequences-bits-left-14.zst")).error, ZstdError::SequencesEnd);
    EXPECT_STREQ(ZstdErrorText(ZstdError::SequencesEnd), "sequences stream not read exactly to its start");
    EXPECT_STREQ(ZstdErrorText(ZstdError::HuffmanEnd), "Huffman stream does not end where its symbols do");
}

TEST(MadeFrames, TextAtLevels)
{
    ExpectDecodes("text-1");
    ExpectDecodes("text-3-check");
    ExpectDecodes("text-19");
    ExpectDecodes("text-22-check");
}

TEST(MadeFrames, Executable)
{
    ExpectDecodes("exe-3-check");
    ExpectDecodes("exe-19");
}

TEST(MadeFrames, EmptyAndOneByte)
{
    ExpectDecodes("empty-3-check");
    ExpectDecodes("one-3");
}

TEST(MadeFrames, IncompressibleAndRuns)
{
    ExpectDecodes("noise-3-check");
    ExpectDecodes("runs-19-check");
}

TEST(MadeFrames, SeveralFramesAndSkippableFrames)
{
    ExpectDecodes("multi");
    ExpectDecodes("skippable");
}

// A 2 GiB window whose matches reach 10 MiB back, beyond what the decoder keeps: those bytes
// are read back from the sink, and the decoder's memory stays under 9 MiB.
TEST(MadeFrames, LongWindowReadsFarMatchesFromTheSink)
{
    Bytes frame = FrameFile("far-long31-check.zst");
    ASSERT_GT(frame.size(), 6u);
    EXPECT_EQ(frame[4] & 0x20, 0) << "single-segment frame";
    EXPECT_EQ(frame[5] >> 3, 21) << "window exponent: 2 GiB";
    Bytes expected = FrameFile("far-long31-check.bin");
    for (size_t chunk : {size_t(0), size_t(1), size_t(65536)}) {
        Decoded decoded = Decode(frame, chunk);
        EXPECT_EQ(decoded.error, ZstdError::None) << ZstdErrorText(decoded.error);
        EXPECT_TRUE(decoded.output == expected) << "in pieces of " << chunk;
        EXPECT_GT(decoded.sinkReads, 0u);
        EXPECT_LT(decoded.memory, size_t(9) << 20);
    }
}

TEST(Patches, DecodeAgainstTheOldFile)
{
    Bytes old = FrameFile("patch.old");
    for (const char* name : {"patch-3", "patch-19"}) {
        Bytes frame = FrameFile(std::string(name) + ".zst");
        Bytes expected = FrameFile(std::string(name) + ".bin");
        for (size_t chunk : {size_t(0), size_t(1), size_t(1000)}) {
            // Read at positions (its end loaded into the decoder's memory), or in place.
            for (bool inView : {false, true}) {
                MemoryHistory history(old, inView);
                Decoded decoded = Decode(frame, chunk, &history, old.size());
                EXPECT_EQ(decoded.error, ZstdError::None) << name << ": " << ZstdErrorText(decoded.error);
                EXPECT_TRUE(decoded.output == expected) << name << " in pieces of " << chunk << (inView ? ", in view" : "");
                if (!inView) {
                    EXPECT_GT(history.reads, 0u);
                }
            }
        }
    }
}

TEST(Patches, WithoutTheOldFileMatchesReachBeforeTheStart)
{
    EXPECT_EQ(Decode(FrameFile("patch-19.zst")).error, ZstdError::Offset);
}

TEST(Patches, UnreadableOldFileIsAReadError)
{
    Bytes old = FrameFile("patch.old");
    MemoryHistory history(Bytes(old.begin(), old.begin() + 100));
    EXPECT_EQ(Decode(FrameFile("patch-19.zst"), 0, &history, old.size()).error, ZstdError::Read);
}

// A frame of one raw block holding "A", with the given dictionary ID.
Bytes FrameWithDictionary(uint8_t id)
{
    return {0x28, 0xB5, 0x2F, 0xFD, 0x21, id, 1, 0x09, 0x00, 0x00, 'A'};
}

TEST(Frames, DictionaryIdIsRefused)
{
    EXPECT_EQ(Decode(FrameWithDictionary(7)).error, ZstdError::Dictionary);
    Decoded plain = Decode(FrameWithDictionary(0));
    EXPECT_EQ(plain.error, ZstdError::None);
    EXPECT_TRUE(plain.output == Bytes{'A'});
    EXPECT_STREQ(ZstdErrorText(ZstdError::Dictionary), "frame needs a dictionary");
}

TEST(Frames, ReservedBitIsRefused)
{
    Bytes frame = FrameWithDictionary(0);
    frame[4] |= 0x08;
    EXPECT_EQ(Decode(frame).error, ZstdError::FrameHeader);
}

TEST(Frames, TruncatedAnywhereIsAnError)
{
    Bytes frame = FrameFile("exe-3-check.zst");
    Bytes expected = FrameFile("exe-3-check.bin");
    for (size_t cut = 1; cut < frame.size(); cut += 97) {
        Decoded decoded = Decode(Bytes(frame.begin(), frame.begin() + cut), 333);
        EXPECT_EQ(decoded.error, ZstdError::Truncated) << "cut at " << cut;
        EXPECT_TRUE(std::equal(decoded.output.begin(), decoded.output.end(), expected.begin()));
    }
    EXPECT_EQ(Decode(Bytes(frame.begin(), frame.end() - 1)).error, ZstdError::Truncated);
}

TEST(Frames, EmptyInputAndStrayBytes)
{
    EXPECT_EQ(Decode({}).error, ZstdError::NoFrame);
    EXPECT_EQ(Decode({'P', 'K', 3, 4, 0}).error, ZstdError::BadMagic);
    Bytes frame = FrameFile("one-3.zst");
    frame.push_back(0x28);
    EXPECT_EQ(Decode(frame).error, ZstdError::Truncated);
    Bytes skippableOnly = {0x5A, 0x2A, 0x4D, 0x18, 2, 0, 0, 0, 'h', 'i'};
    Decoded skipped = Decode(skippableOnly, 1);
    EXPECT_EQ(skipped.error, ZstdError::None);
    EXPECT_TRUE(skipped.output.empty());
}

TEST(Frames, ChecksumAndContentSizeAreChecked)
{
    Bytes frame = FrameFile("text-3-check.zst");
    frame.back() ^= 1;
    EXPECT_EQ(Decode(frame).error, ZstdError::Checksum);
    // one-3.zst: magic, descriptor 0x20 (single segment, 1-byte size), size 1, ...
    Bytes one = FrameFile("one-3.zst");
    ASSERT_EQ(one[4], 0x20);
    one[5] = 2;
    EXPECT_EQ(Decode(one).error, ZstdError::ContentSize);
    one[5] = 0;
    EXPECT_EQ(Decode(one).error, ZstdError::ContentSize);
}

TEST(Limits, WindowAboveTheLimitIsRefusedBeforeOutput)
{
    ZstdLimits limits;
    limits.maxWindow = uint64_t(1) << 30;
    Decoded decoded = Decode(FrameFile("far-long31-check.zst"), 0, nullptr, 0, limits);
    EXPECT_EQ(decoded.error, ZstdError::WindowTooLarge);
    EXPECT_TRUE(decoded.output.empty());
}

TEST(Limits, ContentAboveTheLimit)
{
    ZstdLimits limits;
    limits.maxContent = 1000;
    // The size is declared: refused before any output.
    Decoded declared = Decode(FrameFile("text-19.zst"), 0, nullptr, 0, limits);
    EXPECT_EQ(declared.error, ZstdError::ContentTooLarge);
    EXPECT_TRUE(declared.output.empty());
    // Not declared: refused once the output would pass it.
    Decoded counted = Decode(FrameFile("far-long31-check.zst"), 0, nullptr, 0, limits);
    EXPECT_EQ(counted.error, ZstdError::ContentTooLarge);
    EXPECT_LE(counted.output.size(), 1000u);
}

TEST(Sinks, RefusedWriteStopsDecoding)
{
    MemorySink sink;
    sink.refuseWrites = true;
    ZstdDecoder decoder(ZstdLimits(), sink);
    Bytes frame = FrameFile("text-1.zst");
    EXPECT_EQ(decoder.Push(frame.data(), frame.size()), ZstdError::Write);
    EXPECT_EQ(decoder.Push(frame.data(), frame.size()), ZstdError::Write);
    EXPECT_EQ(decoder.Finish(), ZstdError::Write);
    EXPECT_EQ(decoder.Written(), 0u);
}

TEST(Memory, SmallFramesTakeLittle)
{
    Decoded decoded = Decode(FrameFile("one-3.zst"));
    EXPECT_EQ(decoded.error, ZstdError::None);
    EXPECT_LT(decoded.memory, size_t(1) << 20);
}

}  // namespace
