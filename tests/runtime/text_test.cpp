#include <gtest/gtest.h>
#include "runtime/text.h"

TEST(FormatByteSize, Boundaries)
{
    EXPECT_EQ(FormatByteSize(1023), L"1023 B");
}
