// The release state file beside the program: missing reads as 0, a written version reads back and
// replaces the one before, and an unreadable file reads as 0.
#include <gtest/gtest.h>
#include <windows.h>

#include <fstream>
#include <iterator>
#include <string>

#include "app/release_state.h"

namespace {

class ReleaseState : public ::testing::Test {
protected:
    void SetUp() override
    {
        wchar_t temp[MAX_PATH];
        GetTempPathW(MAX_PATH, temp);
        folder = std::wstring(temp) + L"release-state-" + std::to_wstring(GetCurrentProcessId()) + L"\\";
        CreateDirectoryW(folder.c_str(), nullptr);
        DeleteFileW(StatePath().c_str());
    }
    void TearDown() override
    {
        DeleteFileW(StatePath().c_str());
        RemoveDirectoryW(folder.c_str());
    }
    std::wstring StatePath() const { return folder + L"VeyUpdater.release"; }
    std::string Content() const
    {
        std::ifstream in(StatePath().c_str(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    void Put(const std::string& text) const
    {
        std::ofstream out(StatePath().c_str(), std::ios::binary);
        out << text;
    }

    std::wstring folder;
};

}  // namespace

TEST_F(ReleaseState, MissingFileIsNoRelease)
{
    EXPECT_EQ(ReadAppliedRelease(folder), 0u);
}

TEST_F(ReleaseState, WrittenVersionReadsBackAndIsReplaced)
{
    WriteAppliedRelease(folder, 12);
    EXPECT_EQ(Content(), "12\r\n");
    EXPECT_EQ(ReadAppliedRelease(folder), 12u);
    WriteAppliedRelease(folder, 9007199254740991ull);
    EXPECT_EQ(Content(), "9007199254740991\r\n");
    EXPECT_EQ(ReadAppliedRelease(folder), 9007199254740991ull);
    EXPECT_EQ(GetFileAttributesW((StatePath() + L".tmp").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(ReleaseState, UnreadableFileIsNoRelease)
{
    for (const std::string& text : {std::string(""), std::string("x\r\n"), std::string(100, '1')}) {
        Put(text);
        EXPECT_EQ(ReadAppliedRelease(folder), 0u) << text;
    }
}
