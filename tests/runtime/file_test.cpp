// wFile: positioned overlapped reads and writes completed on the port, and its error cases.
#include <gtest/gtest.h>
#include "runtime/file.h"
#include "runtime/iocp.h"
#include "runtime/text.h"

#include <windows.h>

namespace {

class FileTest : public testing::Test {
protected:
    void SetUp() override
    {
        IocpStart();
        // One file per test, since the tests may run at the same time in separate processes.
        path = GetDirectoryPart(GetModulePath()) + L"\\file_test_" +
               Utf8ToWide(testing::UnitTest::GetInstance()->current_test_info()->name()) + L".bin";
        DeleteFileW(path.c_str());
    }
    void TearDown() override
    {
        DeleteFileW(path.c_str());
        IocpShutdown();
    }
    std::wstring path;
};

}  // namespace

TEST_F(FileTest, WritesAtPositionsAndReadsBack)
{
    wFile file;
    ASSERT_EQ(file.Open(path, true, true, false, CREATE_ALWAYS), 0u);
    EXPECT_EQ(file.Name(), path);
    IoResult second = file.Write(5, "world", 5);
    IoResult first = file.Write(0, "hello", 5);
    EXPECT_EQ(first.error, 0u);
    EXPECT_EQ(first.bytes, 5u);
    EXPECT_EQ(second.bytes, 5u);
    char buffer[16] = {};
    IoResult read = file.Read(0, buffer, sizeof(buffer));
    EXPECT_EQ(read.error, 0u);
    ASSERT_EQ(read.bytes, 10u);
    EXPECT_EQ(std::string(buffer, 10), "helloworld");
    file.Close();
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.Name(), L"");
}

TEST_F(FileTest, ReadPastTheEndReportsEndOfFile)
{
    wFile file;
    ASSERT_EQ(file.Open(path, true, true, false, CREATE_ALWAYS), 0u);
    file.Write(0, "abc", 3);
    char buffer[4];
    IoResult read = file.Read(100, buffer, sizeof(buffer));
    EXPECT_EQ(read.error, static_cast<uint32_t>(ERROR_HANDLE_EOF));
    EXPECT_EQ(read.bytes, 0u);
}

TEST_F(FileTest, MissingFileStaysClosed)
{
    wFile file;
    EXPECT_EQ(file.Open(path + L".missing", true, false, true, OPEN_EXISTING), static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.Name(), L"");
}

TEST_F(FileTest, SecondOpenFailsAndDoubleCloseIsHarmless)
{
    wFile file;
    ASSERT_EQ(file.Open(path, true, true, false, CREATE_ALWAYS), 0u);
    EXPECT_EQ(file.Open(path, true, false, false, OPEN_EXISTING), static_cast<uint32_t>(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(file.IsOpen());
    file.Close();
    file.Close();
    EXPECT_FALSE(file.IsOpen());
}

TEST_F(FileTest, OperationOnClosedFileReturnsItsError)
{
    wFile file;
    char buffer[4];
    IoResult read = file.Read(0, buffer, sizeof(buffer));
    EXPECT_EQ(read.error, static_cast<uint32_t>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(read.bytes, 0u);
}
