// wThread: begin, loop and end on a named thread, stopped from outside.
#include <gtest/gtest.h>
#include "runtime/thread.h"

#include <windows.h>
#include <atomic>

namespace {

class Counting : public wThread {
public:
    bool beginResult = true;
    int loopsBeforeFalse = -1;
    std::atomic<int> begins{0}, loops{0}, ends{0};
    DWORD seenId = 0;

protected:
    bool Begin() override
    {
        ++begins;
        seenId = threadId;
        return beginResult;
    }
    bool Loop() override
    {
        int done = ++loops;
        if (loopsBeforeFalse >= 0 && done >= loopsBeforeFalse)
            return false;
        WaitForSingleObject(wakeEvent.Get(), 5);
        return true;
    }
    void End() override { ++ends; }
};

}  // namespace

TEST(wThread, BeginFalseSkipsLoopAndEnd)
{
    Counting thread;
    thread.beginResult = false;
    thread.Start("t", 1, 2);
    while (thread.Running())
        Sleep(1);
    thread.Stop();
    EXPECT_EQ(thread.begins, 1);
    EXPECT_EQ(thread.loops, 0);
    EXPECT_EQ(thread.ends, 0);
}

TEST(wThread, LoopFalseEndsAndCallsEnd)
{
    Counting thread;
    thread.loopsBeforeFalse = 3;
    thread.Start("t", 1, 2);
    while (thread.Running())
        Sleep(1);
    EXPECT_EQ(thread.loops, 3);
    EXPECT_EQ(thread.ends, 1);
    EXPECT_NE(thread.seenId, 0u);
}

TEST(wThread, StopEndsTheLoop)
{
    Counting thread;
    thread.Start("_wTest", 1, 2);
    while (thread.loops < 2)
        Sleep(1);
    thread.Stop();
    EXPECT_FALSE(thread.Running());
    EXPECT_EQ(thread.begins, 1);
    EXPECT_EQ(thread.ends, 1);
}

TEST(wThread, StopWithoutThreadOnlyClosesTheEvent)
{
    Counting thread;
    thread.Stop();
    thread.Stop();
    EXPECT_EQ(thread.begins, 0);
}

TEST(SetThreadName, ProcessNeverSeesTheException)
{
    SetThreadName("named");
    SUCCEED();
}
