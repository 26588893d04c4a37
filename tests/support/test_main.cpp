// Entry of every unit-test program: sets up the pool as the real program does, then runs the tests.
#include <gtest/gtest.h>
#include <cstdio>
#include "runtime/pool.h"

int main(int argc, char** argv)
{
    // msvcrt buffers standard output to a pipe in full. GoogleTest flushes its own lines, but
    // what a test prints itself would die with the process; unbuffered, a run that dies shows
    // all it printed.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    PoolInit();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
