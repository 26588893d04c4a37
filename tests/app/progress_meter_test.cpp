// ProgressMeter: bytes done over transfers that succeed, fail and restart, the rate over its
// window, the time left, and the console line's text.
#include <gtest/gtest.h>
#include "app/progress_meter.h"

TEST(ProgressMeter, DoneCountsValidTransfersAndTheRunningOne)
{
    ProgressMeter meter;
    meter.Plan(1000);
    meter.Attempt(0);
    meter.Received(300, 10);
    EXPECT_EQ(meter.Done(), 300u);
    meter.Ended(true);
    EXPECT_EQ(meter.Done(), 300u);
    EXPECT_EQ(meter.Fetched(), 300u);

    meter.Attempt(20);
    meter.Received(200, 30);
    EXPECT_EQ(meter.Done(), 500u);
    meter.Ended(false);  // an invalid transfer's bytes are not done
    EXPECT_EQ(meter.Done(), 300u);
    EXPECT_EQ(meter.Fetched(), 300u);

    meter.Attempt(40);
    meter.Received(100, 50);
    meter.Restart();  // a redirect: the file starts again
    meter.Received(400, 60);
    meter.Ended(true);
    meter.Passed(300);
    EXPECT_EQ(meter.Done(), 1000u);
    EXPECT_EQ(meter.Fetched(), 700u);
    EXPECT_EQ(meter.Total(), 1000u);
}

TEST(ProgressMeter, RateOverTheLastTwoSeconds)
{
    ProgressMeter meter;
    meter.Plan(100000000);
    meter.Attempt(1000);
    EXPECT_EQ(meter.Rate(1050), 0u);  // under a tenth of a second: no rate yet
    EXPECT_EQ(meter.SecondsLeft(1050), -1);
    // One million bytes a second for three seconds, in tenths.
    for (uint64_t t = 1100; t <= 4000; t += 100)
        meter.Received(100000, t);
    EXPECT_EQ(meter.Rate(4000), 1000000u);
    // Then ten times faster for one second: the window holds one slow second and one fast one.
    for (uint64_t t = 4100; t <= 5000; t += 100)
        meter.Received(1000000, t);
    EXPECT_EQ(meter.Rate(5000), 5500000u);
    uint64_t left = 100000000 - meter.Done();
    EXPECT_EQ(meter.SecondsLeft(5000), static_cast<int64_t>((left + 5499999) / 5500000));
}

TEST(ProgressMeter, TransferTime)
{
    ProgressMeter meter;
    EXPECT_EQ(meter.TransferMs(500), 0u);
    meter.Attempt(1000);
    EXPECT_EQ(meter.TransferMs(1600), 600u);
    meter.Ended(true);
    EXPECT_EQ(meter.TransferMs(1700), 0u);
}

TEST(ProgressLine, Text)
{
    EXPECT_EQ(FormatProgressLine(13107200, 209715200, 31457280, 6, L"big.bin", L"server", L"127.0.0.1:8080"),
              L"12.5 MB of 200.0 MB, 30.0 MB/s, 0:06 left, big.bin from server 127.0.0.1:8080");
    EXPECT_EQ(FormatProgressLine(0, 2048, 0, -1, L"a\\b.dll", L"peer", L"10.0.0.2:8090"),
              L"0 B of 2 KB, 0 B/s, -:-- left, a\\b.dll from peer 10.0.0.2:8090");
    EXPECT_EQ(FormatProgressLine(1, 2, 1, 3725, L"x", L"server", L"h"), L"1 B of 2 B, 1 B/s, 1:02:05 left, x from server h");
}
