// ProgressPipe against a pipe server in the test: whole lines in order to a launcher that reads,
// whole lines only and the rest counted as dropped when it never reads, the end of the writing
// when it disconnects, and a pipe that is not there.
#include <gtest/gtest.h>
#include "app/progress_pipe.h"
#include "runtime/handles.h"

#include <windows.h>
#include <string>

namespace {

// The server end of a pipe named for the test, connected to a ProgressPipe.
class PipeServer {
public:
    PipeServer(const wchar_t* name, DWORD bufferSize)
        : path(std::wstring(L"\\\\.\\pipe\\vey-progress-test-") + name + L"-" + std::to_wstring(GetCurrentProcessId()))
    {
        server.Reset(CreateNamedPipeW(path.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE | PIPE_WAIT, 1, bufferSize,
                                      bufferSize, 0, nullptr));
        EXPECT_TRUE(server);
    }

    // Reads until the writer closes its end; everything read.
    std::string ReadAll()
    {
        std::string text;
        char buffer[4096];
        DWORD got = 0;
        while (ReadFile(server.Get(), buffer, sizeof(buffer), &got, nullptr))
            text.append(buffer, got);
        return text;
    }

    std::wstring path;
    UniqueHandle server;
};

std::string Line(int i)
{
    return "{\"event\":\"progress\",\"done\":" + std::to_string(i) + ",\"pad\":\"" + std::string(60, 'x') + "\"}";
}

}  // namespace

TEST(ProgressPipe, WholeLinesInOrderToALauncherThatReads)
{
    PipeServer launcher(L"reads", 4096);
    ProgressPipe pipe;
    ASSERT_EQ(pipe.Open(launcher.path), 0u);
    std::string expected;
    for (int i = 0; i < 3; ++i) {
        pipe.Send(Line(i));
        expected += Line(i) + "\n";
    }
    pipe.Finish("{\"event\":\"end\"}", 1000);
    EXPECT_FALSE(pipe.IsOpen());
    EXPECT_EQ(launcher.ReadAll(), expected + "{\"event\":\"end\"}\n");
    EXPECT_EQ(pipe.Dropped(), 0u);
    EXPECT_EQ(pipe.Lines(), 4u);
}

TEST(ProgressPipe, ALauncherThatNeverReadsGetsWholeLinesAndTheRestIsDropped)
{
    PipeServer launcher(L"never", 4096);
    ProgressPipe pipe;
    ASSERT_EQ(pipe.Open(launcher.path), 0u);
    const int count = 200;  // about 16 KiB: four times the pipe's buffer
    for (int i = 0; i < count; ++i)
        pipe.Send(Line(i));
    pipe.Finish("{\"event\":\"end\"}", 100);
    EXPECT_EQ(pipe.Lines(), uint32_t(count + 1));
    EXPECT_GT(pipe.Dropped(), 0u);

    // What reached the pipe is the first lines, each whole; every other line was counted.
    std::string text = launcher.ReadAll();
    std::string expected;
    int read = 0;
    while (read < count && expected.size() < text.size())
        expected += Line(read++) + "\n";
    EXPECT_EQ(text, expected);
    EXPECT_GT(read, 0);
    EXPECT_EQ(uint32_t(read) + pipe.Dropped(), uint32_t(count + 1));
}

TEST(ProgressPipe, ALauncherThatDisconnectsEndsTheWriting)
{
    PipeServer launcher(L"gone", 4096);
    ProgressPipe pipe;
    ASSERT_EQ(pipe.Open(launcher.path), 0u);
    pipe.Send(Line(0));
    char buffer[256];
    DWORD got = 0;
    ASSERT_TRUE(ReadFile(launcher.server.Get(), buffer, sizeof(buffer), &got, nullptr));
    EXPECT_EQ(std::string(buffer, got), Line(0) + "\n");
    DisconnectNamedPipe(launcher.server.Get());

    pipe.Send(Line(1));
    EXPECT_FALSE(pipe.IsOpen());
    pipe.Send(Line(2));
    pipe.Finish("{\"event\":\"end\"}", 1000);
    EXPECT_EQ(pipe.Dropped(), 0u);
}

TEST(ProgressPipe, AMissingPipe)
{
    ProgressPipe pipe;
    EXPECT_EQ(pipe.Open(L"\\\\.\\pipe\\vey-progress-test-nobody-listens"), uint32_t(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(pipe.IsOpen());
    pipe.Send(Line(0));
    pipe.Finish("{\"event\":\"end\"}", 1000);
    EXPECT_EQ(pipe.Lines(), 0u);
}
