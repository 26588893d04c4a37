// wFile: positioned overlapped reads and writes completed on the port, the same opened direct,
// and their error cases.
#include <gtest/gtest.h>
#include "runtime/file.h"
#include "runtime/iocp.h"
#include "runtime/text.h"
#include "support/test_path.h"

#include <windows.h>
#include <string>
#include <thread>

namespace {

class FileTest : public testing::Test {
protected:
    void SetUp() override
    {
        IocpStart();
        path = TestPath(L"file_test_", L".bin");
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

TEST_F(FileTest, WholeTransfersMoveEveryByteOrSayWhyNot)
{
    wFile file;
    ASSERT_EQ(file.Open(path, true, true, false, CREATE_ALWAYS), 0u);
    std::string data(100000, '\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>(i * 7 + (i >> 8));
    EXPECT_EQ(file.WriteAll(3, data.data(), data.size()), 0u);
    std::string back(data.size(), '\0');
    EXPECT_EQ(file.ReadAll(3, &back[0], back.size()), 0u);
    EXPECT_EQ(back, data);
    EXPECT_EQ(file.ReadAll(0, &back[0], 0), 0u);
    EXPECT_EQ(file.ReadAll(4, &back[0], back.size()), static_cast<uint32_t>(ERROR_HANDLE_EOF));
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

// The waiting event is made once per thread and reused: every call still returns its own result,
// after failures too, and threads that wait at the same time each get their own completions.
TEST_F(FileTest, ThreadsReuseTheirEventAndEachGetTheirOwnResults)
{
    auto work = [this](int id, bool* ok) {
        std::wstring own = path + L"." + std::to_wstring(id);
        wFile file;
        *ok = file.Open(own, true, true, false, CREATE_ALWAYS) == 0;
        for (uint32_t i = 0; i < 200 && *ok; ++i) {
            uint32_t value = i * 31 + static_cast<uint32_t>(id), read = 0;
            IoResult written = file.Write(i * 4, &value, 4);
            IoResult past = file.Read(1 << 20, &read, 4);
            IoResult back = file.Read(i * 4, &read, 4);
            *ok = written.error == 0 && written.bytes == 4 && past.error == ERROR_HANDLE_EOF && past.bytes == 0 &&
                  back.error == 0 && back.bytes == 4 && read == value;
        }
        file.Close();
        DeleteFileW(own.c_str());
    };
    bool ok[4] = {};
    std::thread threads[3] = {std::thread(work, 1, &ok[1]), std::thread(work, 2, &ok[2]), std::thread(work, 3, &ok[3])};
    work(0, &ok[0]);
    for (auto& thread : threads)
        thread.join();
    for (bool each : ok)
        EXPECT_TRUE(each);
}

// Opened direct, a file is never bound to the port: it opens and works with no port running, at
// explicit positions, with the same results as through the port.
TEST(DirectFile, WorksWithoutThePortAtPositions)
{
    std::wstring path = TestPath(L"file_direct_", L".bin");
    DeleteFileW(path.c_str());
    wFile file;
    ASSERT_EQ(file.Open(path, true, true, false, CREATE_ALWAYS, FileIo::Direct), 0u);
    auto done = [](IoResult result, uint32_t bytes) { return result.error == 0 && result.bytes == bytes; };
    EXPECT_TRUE(done(file.Write(6, "writes", 6), 6));
    EXPECT_TRUE(done(file.Write(0, "direct", 6), 6));
    char buffer[16] = {};
    EXPECT_TRUE(done(file.Read(3, buffer, sizeof(buffer)), 9));
    EXPECT_EQ(std::string(buffer, 9), "ectwrites");
    IoResult past = file.Read(100, buffer, sizeof(buffer));
    EXPECT_EQ(past.error, static_cast<uint32_t>(ERROR_HANDLE_EOF));
    EXPECT_EQ(past.bytes, 0u);
    EXPECT_EQ(file.Open(path, true, false, false, OPEN_EXISTING, FileIo::Direct), static_cast<uint32_t>(ERROR_INVALID_HANDLE));
    file.Close();
    EXPECT_FALSE(file.IsOpen());
    IoResult closed = file.Read(0, buffer, sizeof(buffer));
    EXPECT_EQ(closed.error, static_cast<uint32_t>(ERROR_INVALID_HANDLE));
    DeleteFileW(path.c_str());
}

// A write that the device refuses reports its error and no bytes, as a write through the port
// does. Z:\dev\full is Wine's view of the Linux device that is always full.
TEST(DirectFile, RefusedWriteReportsItsError)
{
    wFile file;
    ASSERT_EQ(file.Open(L"Z:\\dev\\full", false, true, false, OPEN_EXISTING, FileIo::Direct), 0u);
    IoResult written = file.Write(0, "abc", 3);
    EXPECT_EQ(written.error, static_cast<uint32_t>(ERROR_DISK_FULL));
    EXPECT_EQ(written.bytes, 0u);
}
