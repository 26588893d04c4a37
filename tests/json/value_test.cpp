// The value model: kinds and their numbers, lookups, member order and release of whole trees.
#include "json/json_support.h"

#include <vector>

namespace {

class JsonValue : public PoolBalanced {};

std::vector<std::wstring> KeysOf(const wJsonObject& object)
{
    std::vector<std::wstring> keys;
    for (const auto& member : object.Members())
        keys.push_back(member.first);
    return keys;
}

const wchar_t kAllKinds[] =
    L"{\"arr\":[1,\"two\"],\"bool\":true,\"nul\":null,\"num\":42,\"obj\":{\"x\":\"y\"},\"str\":\"text\",\"empty\":\"\"}";

}  // namespace

TEST_F(JsonValue, KindsCarryTheProgramsNumbers)
{
    EXPECT_EQ(static_cast<int>(wJsonType::array), 1);
    EXPECT_EQ(static_cast<int>(wJsonType::boolean), 2);
    EXPECT_EQ(static_cast<int>(wJsonType::null), 3);
    EXPECT_EQ(static_cast<int>(wJsonType::number), 4);
    EXPECT_EQ(static_cast<int>(wJsonType::object), 5);
    EXPECT_EQ(static_cast<int>(wJsonType::string), 6);
    EXPECT_EQ(sizeof(wJsonType), 4u);
}

TEST_F(JsonValue, ParsedValuesHaveTheirKindAndContent)
{
    auto root = ParseDocument(kAllKinds);
    ASSERT_TRUE(root);
    EXPECT_EQ(root->type, wJsonType::object);
    EXPECT_EQ(Member(*root, L"arr")->type, wJsonType::array);
    EXPECT_EQ(Member(*root, L"bool")->type, wJsonType::boolean);
    EXPECT_EQ(Member(*root, L"nul")->type, wJsonType::null);
    EXPECT_EQ(Member(*root, L"num")->type, wJsonType::number);
    EXPECT_EQ(Member(*root, L"obj")->type, wJsonType::object);
    EXPECT_EQ(Member(*root, L"str")->type, wJsonType::string);
    EXPECT_TRUE(static_cast<const wJsonBoolean*>(Member(*root, L"bool"))->Value());
    EXPECT_EQ(static_cast<const wJsonNumber*>(Member(*root, L"num"))->Value(), 42.0);
    EXPECT_EQ(static_cast<const wJsonString*>(Member(*root, L"str"))->Text(), L"text");
    EXPECT_EQ(static_cast<const wJsonObject*>(Member(*root, L"obj"))->GetString(L"x"), L"y");

    auto falseValue = ParseAny(L"false");
    ASSERT_TRUE(falseValue);
    ASSERT_EQ(falseValue->type, wJsonType::boolean);
    EXPECT_FALSE(static_cast<const wJsonBoolean*>(falseValue.get())->Value());
}

TEST_F(JsonValue, GetStringOfAnotherKindIsEmptyLikeAMissingKey)
{
    auto root = ParseDocument(kAllKinds);
    ASSERT_TRUE(root);
    EXPECT_EQ(root->GetString(L"str"), L"text");
    EXPECT_EQ(root->GetString(L"num"), L"");
    EXPECT_EQ(root->GetString(L"bool"), L"");
    EXPECT_EQ(root->GetString(L"nul"), L"");
    EXPECT_EQ(root->GetString(L"obj"), L"");
    EXPECT_EQ(root->GetString(L"arr"), L"");
    EXPECT_EQ(root->GetString(L"empty"), L"");
    EXPECT_EQ(root->GetString(L"missing"), L"");
    EXPECT_EQ(root->GetString(L"STR"), L"");
}

TEST_F(JsonValue, GetArrayFindsOnlyArrays)
{
    auto root = ParseDocument(kAllKinds);
    ASSERT_TRUE(root);
    const wJsonArray* array = root->GetArray(L"arr");
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(array->Count(), 2u);
    EXPECT_EQ(array, Member(*root, L"arr"));
    EXPECT_EQ(root->GetArray(L"obj"), nullptr);
    EXPECT_EQ(root->GetArray(L"str"), nullptr);
    EXPECT_EQ(root->GetArray(L"num"), nullptr);
    EXPECT_EQ(root->GetArray(L"missing"), nullptr);
}

TEST_F(JsonValue, ArrayGetStringByIndex)
{
    auto root = ParseDocument(L"{\"a\":[\"x\", 1, \"\", null, [\"nested\"], \"last\"]}");
    ASSERT_TRUE(root);
    const wJsonArray* array = root->GetArray(L"a");
    ASSERT_NE(array, nullptr);
    ASSERT_EQ(array->Count(), 6u);
    EXPECT_EQ(array->GetString(0), L"x");
    EXPECT_EQ(array->GetString(1), L"");
    EXPECT_EQ(array->GetString(2), L"");
    EXPECT_EQ(array->GetString(3), L"");
    EXPECT_EQ(array->GetString(4), L"");
    EXPECT_EQ(array->GetString(5), L"last");
    EXPECT_EQ(array->GetString(6), L"");
    EXPECT_EQ(array->GetString(UINT32_MAX), L"");
}

TEST_F(JsonValue, ArrayElementsInDocumentOrder)
{
    auto root = ParseDocument(L"{\"a\":[3, 1, 2, true, \"s\"]}");
    ASSERT_TRUE(root);
    const wJsonArray* array = root->GetArray(L"a");
    ASSERT_NE(array, nullptr);
    std::vector<wJsonType> kinds;
    for (const wJsonValue* element : *array)
        kinds.push_back(element->type);
    EXPECT_EQ(kinds, (std::vector<wJsonType>{wJsonType::number, wJsonType::number, wJsonType::number,
                                             wJsonType::boolean, wJsonType::string}));
    EXPECT_EQ(static_cast<const wJsonNumber*>(array->At(0))->Value(), 3.0);
    EXPECT_EQ(static_cast<const wJsonNumber*>(array->At(1))->Value(), 1.0);
    EXPECT_EQ(static_cast<const wJsonNumber*>(array->At(2))->Value(), 2.0);
}

TEST_F(JsonValue, ManyElementsKeepTheirOrder)
{
    std::wstring text = L"{\"a\":[";
    for (int i = 0; i < 1000; ++i)
        text += std::to_wstring(i) + L",";
    text += L"1000]}";
    auto root = ParseDocument(text);
    ASSERT_TRUE(root);
    const wJsonArray* array = root->GetArray(L"a");
    ASSERT_NE(array, nullptr);
    ASSERT_EQ(array->Count(), 1001u);
    for (uint32_t i = 0; i < array->Count(); ++i)
        ASSERT_EQ(static_cast<const wJsonNumber*>(array->At(i))->Value(), static_cast<double>(i));
}

TEST_F(JsonValue, MembersInCodeUnitOrder)
{
    auto root = ParseDocument(L"{\"abc\":1,\"a\":2,\"B\":3,\"ab\":4,\"\":5,\"b\":6,\"A\":7}");
    ASSERT_TRUE(root);
    EXPECT_EQ(KeysOf(*root), (std::vector<std::wstring>{L"", L"A", L"B", L"a", L"ab", L"abc", L"b"}));
    EXPECT_EQ(static_cast<const wJsonNumber*>(Member(*root, L"B"))->Value(), 3.0);
    EXPECT_EQ(static_cast<const wJsonNumber*>(Member(*root, L"a"))->Value(), 2.0);
}

TEST_F(JsonValue, CodeUnitsCompareAsUnsigned16Bit)
{
    auto root = ParseDocument(L"{\"\\uffff\":1,\"\\ud800\":2,\"\\u0100\":3,\"\\u00e9\":4,\"z\":5,\"\\u007f\":6,\"z\\u0000\":7}");
    ASSERT_TRUE(root);
    EXPECT_EQ(KeysOf(*root), (std::vector<std::wstring>{L"z", std::wstring(L"z\0", 2), L"\x7f", L"\xe9", L"\x100",
                                                         L"\xd800", L"\xffff"}));
}

TEST_F(JsonValue, KeyComparator)
{
    wJsonKeyLess less;
    EXPECT_TRUE(less(L"B", L"a"));
    EXPECT_FALSE(less(L"a", L"B"));
    EXPECT_TRUE(less(L"ab", L"abc"));
    EXPECT_FALSE(less(L"abc", L"ab"));
    EXPECT_TRUE(less(L"", L"\x0001"));
    EXPECT_TRUE(less(L"\x7fff", L"\x8000"));
    EXPECT_TRUE(less(L"z", L"\xffff"));
    EXPECT_FALSE(less(L"same", L"same"));
}

TEST_F(JsonValue, StringMayHoldNul)
{
    auto root = ParseDocument(L"{\"s\":\"a\\u0000b\"}");
    ASSERT_TRUE(root);
    const auto* text = static_cast<const wJsonString*>(Member(*root, L"s"));
    EXPECT_EQ(text->Text(), std::wstring_view(L"a\0b", 3));
    EXPECT_EQ(root->GetString(L"s"), std::wstring(L"a\0b", 3));
}

TEST_F(JsonValue, EveryValueTakesOnePoolBlockAndReleaseReturnsThemAll)
{
    // 14 values: the root, "a" with its 3 elements (one an object with 2 members, one an
    // array of 2), and "b" with its member "c" holding an empty array and an empty object.
    const wchar_t* text =
        L"{\"a\":[{\"x\":[null],\"y\":\"s\"},[true,1.5],\"t\"],\"b\":{\"c\":[[],{}]}}";
    long long start = PoolOutstanding();
    auto root = ParseDocument(text);
    ASSERT_TRUE(root);
    EXPECT_EQ(PoolOutstanding() - start, 14);
    root.reset();
    EXPECT_EQ(PoolOutstanding(), start);
}
