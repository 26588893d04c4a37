// The plan line logged for each file that differs from the manifest.
#include <gtest/gtest.h>
#include "app/manifest.h"
#include "release/update_item.h"

TEST(PlanLine, SizesAsTextAndUnknownLocalSize)
{
    UpdateItem item;
    item.name = L"bin\\a.dll";
    item.hash = L"0123";
    item.localHash = std::wstring(40, L'_');
    item.size = 1572864;
    item.localSize = 0;
    EXPECT_EQ(PlanLine(item), L"(________________________________________ -> 0123) (0 B -> 1.5 MB) (bin\\a.dll)");
    item.localSize = ~0ull;
    EXPECT_EQ(PlanLine(item), L"(________________________________________ -> 0123) (_ -> 1.5 MB) (bin\\a.dll)");
    item.localSize = 2048;
    item.size = 1610612736;
    EXPECT_EQ(PlanLine(item), L"(________________________________________ -> 0123) (2 KB -> 1.50 GB) (bin\\a.dll)");
}
