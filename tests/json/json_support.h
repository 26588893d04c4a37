// Helpers shared by the JSON tests: owning handles for parsed trees and a fixture that checks
// that every pool block taken during a test has been given back by its end.
#pragma once
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "json/value.h"
#include "runtime/pool.h"

struct ReleaseJson {
    void operator()(wJsonValue* value) const { value->Release(); }
};
template <typename T>
using JsonTree = std::unique_ptr<T, ReleaseJson>;

inline JsonTree<wJsonObject> ParseDocument(const std::wstring& text)
{
    const wchar_t* cursor = text.c_str();
    return JsonTree<wJsonObject>(wJsonObject::Parse(cursor));
}

inline JsonTree<wJsonValue> ParseAny(const std::wstring& text)
{
    const wchar_t* cursor = text.c_str();
    return JsonTree<wJsonValue>(wJsonValue::Parse(cursor));
}

// The member's value; fails the test when the key is missing.
inline const wJsonValue* Member(const wJsonObject& object, const std::wstring& key)
{
    auto found = object.Members().find(key);
    if (found == object.Members().end()) {
        ADD_FAILURE() << "missing member";
        return nullptr;
    }
    return found->second;
}

class PoolBalanced : public testing::Test {
protected:
    void SetUp() override { before = PoolOutstanding(); }
    void TearDown() override { EXPECT_EQ(PoolOutstanding(), before) << "pool blocks not given back"; }

    long long before = 0;
};
