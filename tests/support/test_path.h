// A path beside the test program that belongs to the running test alone: ctest runs every test
// in a process of its own, two at a time, so a fixed name would be shared by tests running at once.
#pragma once
#include <gtest/gtest.h>
#include "runtime/text.h"

#include <string>

inline std::wstring TestPath(const std::wstring& prefix, const std::wstring& suffix = L"")
{
    return GetDirectoryPart(GetModulePath()) + L"\\" + prefix +
           Utf8ToWide(testing::UnitTest::GetInstance()->current_test_info()->name()) + suffix;
}
