// FileSink and MappedHistory: a patch decoded from the old file's mapping into a file on disk,
// reading its own far output back from that file.
#include "zstd/file_io.h"
#include "frames.h"
#include "support/test_path.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace {

Bytes FileBytes(const std::wstring& path)
{
    wFile file;
    EXPECT_EQ(file.Open(path, true, false, false, OPEN_EXISTING, FileIo::Direct), 0u);
    Bytes bytes(1 << 20);
    IoResult result = file.Read(0, bytes.data(), static_cast<uint32_t>(bytes.size()));
    bytes.resize(result.bytes);
    return bytes;
}

TEST(FileIo, PatchFromMappedOldFileIntoStagingFile)
{
    std::wstring old = Utf8ToWide(FramesFolder() + "patch.old");
    MappedHistory history;
    ASSERT_EQ(history.Open(old), 0u);
    EXPECT_EQ(history.Size(), FrameFile("patch.old").size());
    std::wstring staged = TestPath(L"staged-");
    wFile file;
    ASSERT_EQ(file.Open(staged, true, true, false, CREATE_ALWAYS, FileIo::Direct), 0u);
    // The output starts after a 10-byte head that the sink leaves alone.
    ASSERT_EQ(file.Write(0, "0123456789", 10).error, 0u);
    FileSink sink(file, 10);
    ZstdDecoder decoder(ZstdLimits(), sink, &history, history.Size());
    Bytes frame = FrameFile("patch-19.zst");
    EXPECT_EQ(decoder.Push(frame.data(), frame.size()), ZstdError::None);
    EXPECT_EQ(decoder.Finish(), ZstdError::None);
    EXPECT_EQ(sink.LastError(), 0u);
    file.Close();
    Bytes expected = FrameFile("patch-19.bin");
    Bytes onDisk = FileBytes(staged);
    ASSERT_EQ(onDisk.size(), expected.size() + 10);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), onDisk.begin() + 10));
    DeleteFileW(staged.c_str());
}

TEST(FileIo, FarMatchesReadTheStagingFileBack)
{
    std::wstring staged = TestPath(L"staged-");
    wFile file;
    ASSERT_EQ(file.Open(staged, true, true, false, CREATE_ALWAYS, FileIo::Direct), 0u);
    FileSink sink(file);
    ZstdDecoder decoder(ZstdLimits(), sink);
    Bytes frame = FrameFile("far-long31-check.zst");
    for (size_t at = 0; at < frame.size(); at += 65536)
        ASSERT_EQ(decoder.Push(frame.data() + at, std::min<size_t>(65536, frame.size() - at)), ZstdError::None);
    EXPECT_EQ(decoder.Finish(), ZstdError::None);
    file.Close();
    wFile check;
    ASSERT_EQ(check.Open(staged, true, false, false, OPEN_EXISTING, FileIo::Direct), 0u);
    Bytes expected = FrameFile("far-long31-check.bin");
    Bytes onDisk(expected.size());
    EXPECT_EQ(check.Read(0, onDisk.data(), static_cast<uint32_t>(onDisk.size())).bytes, expected.size());
    EXPECT_TRUE(onDisk == expected);
    check.Close();
    DeleteFileW(staged.c_str());
}

TEST(FileIo, ReadsBeyondWhatWasWrittenFail)
{
    std::wstring staged = TestPath(L"staged-");
    wFile file;
    ASSERT_EQ(file.Open(staged, true, true, false, CREATE_ALWAYS, FileIo::Direct), 0u);
    FileSink sink(file);
    ASSERT_TRUE(sink.Write("abcdef", 6));
    char back[4] = {};
    EXPECT_TRUE(sink.ReadAt(2, back, 4));
    EXPECT_EQ(std::string(back, 4), "cdef");
    EXPECT_FALSE(sink.ReadAt(3, back, 4));
    file.Close();
    DeleteFileW(staged.c_str());
}

TEST(FileIo, MissingOldFileGivesItsCode)
{
    MappedHistory history;
    EXPECT_EQ(history.Open(TestPath(L"missing-")), static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
}

}  // namespace
