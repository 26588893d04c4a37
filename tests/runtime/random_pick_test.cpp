// RandomPick: the seeded shuffle and pick, and the cases of zero and one entries.
#include <gtest/gtest.h>
#include "runtime/random_pick.h"

#include <algorithm>

using List = std::vector<std::wstring>;

TEST(RandomPick, FixedSeedGivesAFixedOrderAndPick)
{
    RandomPick pick;
    pick.AssignSeeded(List{L"a", L"b", L"c", L"d", L"e"}, 12345);
    EXPECT_EQ(pick.items, (List{L"e", L"a", L"c", L"b", L"d"}));
    EXPECT_EQ(pick.index, 1u);
    EXPECT_EQ(pick.chosen, L"a");
}

TEST(RandomPick, GeneratorStep)
{
    EXPECT_EQ(RandomPick::Step(0), 12345u);
    EXPECT_EQ(RandomPick::Step(1), 1103527590u);
    EXPECT_EQ(RandomPick::Step(0xFFFFFFFFu), static_cast<uint32_t>(0xFFFFFFFFull * 1103515245ull + 12345ull));
}

TEST(RandomPick, ResultIsAPermutation)
{
    List input;
    for (int i = 0; i < 50; ++i)
        input.push_back(std::to_wstring(i));
    for (uint32_t seed = 0; seed < 200; ++seed) {
        RandomPick pick;
        pick.AssignSeeded(input, seed * 2654435761u);
        List sorted = pick.items;
        std::sort(sorted.begin(), sorted.end());
        List expected = input;
        std::sort(expected.begin(), expected.end());
        ASSERT_EQ(sorted, expected);
        ASSERT_LT(pick.index, input.size());
        ASSERT_EQ(pick.chosen, pick.items[pick.index]);
    }
}

TEST(RandomPick, ClockSeededAssignIsAPermutationToo)
{
    RandomPick pick;
    pick.Assign(List{L"x", L"y", L"z"});
    List sorted = pick.items;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (List{L"x", L"y", L"z"}));
    EXPECT_EQ(pick.chosen, pick.items[pick.index]);
}

TEST(RandomPick, OneEntry)
{
    RandomPick pick;
    pick.AssignSeeded(List{L"only"}, 7);
    EXPECT_EQ(pick.items, List{L"only"});
    EXPECT_EQ(pick.index, 0u);
    EXPECT_EQ(pick.chosen, L"only");
}

TEST(RandomPick, EmptyList)
{
    RandomPick pick;
    pick.AssignSeeded(List{L"old"}, 1);
    pick.Assign(List{});
    EXPECT_TRUE(pick.items.empty());
    EXPECT_EQ(pick.index, 0u);
    EXPECT_EQ(pick.chosen, L"");
}

TEST(RandomPick, AssignFromItsOwnItems)
{
    RandomPick pick;
    pick.AssignSeeded(List{L"a", L"b"}, 3);
    pick.AssignSeeded(pick.items, 3);
    List sorted = pick.items;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (List{L"a", L"b"}));
}
