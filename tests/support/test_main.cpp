// Entry of every unit-test program: sets up the pool as the real program does, then runs the tests.
#include <gtest/gtest.h>
#include "runtime/pool.h"

int main(int argc, char** argv)
{
    PoolInit();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
