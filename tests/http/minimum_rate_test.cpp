// MinimumRate: a transfer holds while every minute brings at least a minute's worth at the rate.
#include <gtest/gtest.h>

#include "http/minimum_rate.h"

TEST(MinimumRate, NoRateAlwaysHolds)
{
    MinimumRate pace;
    pace.Start(0, 1000);
    EXPECT_TRUE(pace.Holds(0, 1000000));
}

TEST(MinimumRate, ABytePer900MsFailsAfterAMinute)
{
    MinimumRate pace;
    pace.Start(1024, 5000);
    uint64_t total = 0;
    uint64_t now = 5000;
    for (; now < 5000 + 60000; now += 900) {
        ASSERT_TRUE(pace.Holds(total, now)) << now;
        ++total;
    }
    // The first sample a minute after the start sees 67 bytes over that minute.
    for (; now <= 5000 + 61000 && pace.Holds(total, now); now += 900)
        ++total;
    EXPECT_LE(now, 5000u + 61000u);
    EXPECT_FALSE(pace.Holds(total, now));
}

TEST(MinimumRate, EnoughInEveryMinuteHoldsAndASlowMinuteLaterFails)
{
    MinimumRate pace;
    pace.Start(1024, 0);
    uint64_t total = 0;
    // Ten minutes at 2 KiB/s in bursts every half second.
    for (uint64_t now = 0; now < 600000; now += 500) {
        total += 1024;
        ASSERT_TRUE(pace.Holds(total, now)) << now;
    }
    // Then 512 bytes a second: the minute that ends 60 s later averages under the rate.
    uint64_t now = 600000;
    for (; now < 600000 + 120000; now += 1000) {
        total += 512;
        if (!pace.Holds(total, now))
            break;
    }
    EXPECT_GT(now, 600000u + 30000u);
    EXPECT_LE(now, 600000u + 61000u);
}

TEST(MinimumRate, AFastStartDoesNotCoverALaterStall)
{
    MinimumRate pace;
    pace.Start(1024, 0);
    ASSERT_TRUE(pace.Holds(100 << 20, 500));
    uint64_t now = 1000;
    while (now < 200000 && pace.Holds(100 << 20, now))
        now += 250;
    EXPECT_GE(now, 60000u);
    EXPECT_LE(now, 62000u);
}
