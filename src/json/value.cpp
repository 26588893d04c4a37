// The JSON value classes: pooled construction, release of whole trees and the lookups.
#include "json/value.h"
#include "runtime/fatal.h"
#include "runtime/pool.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

namespace {

// Each value takes the smallest pool class that holds it. With 4-byte pointers (vtable
// pointer and type in 8 bytes) that is 3, 4, 4, 4, 4 and 5 for null, boolean, number,
// object, string and array; with 8-byte pointers the vtable pointer alone fills class 3,
// giving 4, 4, 5, 5, 5 and 5.
constexpr bool kWidePointers = sizeof(void*) == 8;
template <typename T>
constexpr unsigned kPoolClass = 0;
template <>
constexpr unsigned kPoolClass<wJsonNull> = kWidePointers ? 4 : 3;
template <>
constexpr unsigned kPoolClass<wJsonBoolean> = 4;
template <>
constexpr unsigned kPoolClass<wJsonNumber> = kWidePointers ? 5 : 4;
template <>
constexpr unsigned kPoolClass<wJsonObject> = kWidePointers ? 5 : 4;
template <>
constexpr unsigned kPoolClass<wJsonString> = kWidePointers ? 5 : 4;
template <>
constexpr unsigned kPoolClass<wJsonArray> = 5;

template <typename T>
void* AllocateValue()
{
    static_assert(sizeof(T) <= (size_t(1) << kPoolClass<T>), "value does not fit its pool class");
    static_assert(kPoolClass<T> == 3 || sizeof(T) > (size_t(1) << (kPoolClass<T> - 1)), "value fits a smaller pool class");
    return PoolAlloc(kPoolClass<T>);
}

}  // namespace

wJsonNull* wJsonNull::Create()
{
    return new (AllocateValue<wJsonNull>()) wJsonNull();
}

void wJsonNull::Release()
{
    this->~wJsonNull();
    PoolFree(this);
}

wJsonBoolean* wJsonBoolean::Create(bool v)
{
    return new (AllocateValue<wJsonBoolean>()) wJsonBoolean(v);
}

void wJsonBoolean::Release()
{
    this->~wJsonBoolean();
    PoolFree(this);
}

wJsonNumber* wJsonNumber::Create(double v)
{
    return new (AllocateValue<wJsonNumber>()) wJsonNumber(v);
}

void wJsonNumber::Release()
{
    this->~wJsonNumber();
    PoolFree(this);
}

wJsonString* wJsonString::Create(std::wstring_view text)
{
    auto* buffer = new wchar_t[text.size() + 1];
    if (!text.empty())
        std::memcpy(buffer, text.data(), text.size() * sizeof(wchar_t));
    buffer[text.size()] = L'\0';
    return new (AllocateValue<wJsonString>()) wJsonString(buffer, text.size());
}

void wJsonString::Release()
{
    this->~wJsonString();
    PoolFree(this);
}

wJsonArray* wJsonArray::Create()
{
    return new (AllocateValue<wJsonArray>()) wJsonArray();
}

wJsonArray::~wJsonArray()
{
    for (uint32_t i = 0; i < count; ++i)
        items[i]->Release();
    std::free(items);
}

void wJsonArray::Release()
{
    this->~wJsonArray();
    PoolFree(this);
}

void wJsonArray::Append(wJsonValue* element)
{
    if (count == capacity) {
        constexpr size_t kMostItems = std::min<size_t>(UINT32_MAX, SIZE_MAX / sizeof(wJsonValue*));
        if (capacity == kMostItems)
            FatalError(kFatalOutOfMemory);
        size_t grown = capacity == 0 ? 4 : std::min<size_t>(size_t(capacity) * 2, kMostItems);
        auto* moved = static_cast<wJsonValue**>(std::realloc(items, grown * sizeof(wJsonValue*)));
        if (!moved)
            FatalError(kFatalOutOfMemory);
        items = moved;
        capacity = static_cast<uint32_t>(grown);
    }
    items[count++] = element;
}

std::wstring wJsonArray::GetString(uint32_t index) const
{
    if (index >= count || items[index]->type != wJsonType::string)
        return std::wstring();
    return std::wstring(static_cast<const wJsonString*>(items[index])->Text());
}

wJsonObject::wJsonObject() : wJsonValue(wJsonType::object), members(new wJsonMembers) {}

wJsonObject* wJsonObject::Create()
{
    return new (AllocateValue<wJsonObject>()) wJsonObject();
}

wJsonObject::~wJsonObject()
{
    for (auto& member : *members)
        member.second->Release();
    delete members;
}

void wJsonObject::Release()
{
    this->~wJsonObject();
    PoolFree(this);
}

wJsonMembers::const_iterator wJsonMembers::find(const std::wstring& key) const
{
    auto found = std::lower_bound(list.begin(), list.end(), key,
                                  [](const Member& member, const std::wstring& k) { return wJsonKeyLess()(member.first, k); });
    return found != list.end() && found->first == key ? found : list.end();
}

wJsonValue* wJsonMembers::at(const std::wstring& key) const
{
    auto found = find(key);
    if (found == end())
        throw std::out_of_range("no such member");
    return found->second;
}

void wJsonObject::Insert(std::wstring&& key, wJsonValue* value)
{
    members->list.emplace_back(std::move(key), value);
}

void wJsonObject::Finish()
{
    auto& list = members->list;
    // Stable, so that members of one key stay in document order and the last one can be kept.
    std::stable_sort(list.begin(), list.end(),
                     [](const wJsonMembers::Member& a, const wJsonMembers::Member& b) { return wJsonKeyLess()(a.first, b.first); });
    size_t kept = 0;
    for (size_t i = 0; i < list.size(); ++i) {
        if (i + 1 < list.size() && list[i + 1].first == list[i].first) {
            list[i].second->Release();
            continue;
        }
        if (kept != i)
            list[kept] = std::move(list[i]);
        ++kept;
    }
    list.resize(kept);
    list.shrink_to_fit();
}

const wJsonValue* wJsonObject::Get(const std::wstring& key) const
{
    auto found = members->find(key);
    return found == members->end() ? nullptr : found->second;
}

const wJsonArray* wJsonObject::GetArray(const std::wstring& key) const
{
    const wJsonValue* value = Get(key);
    return value && value->type == wJsonType::array ? static_cast<const wJsonArray*>(value) : nullptr;
}

std::wstring wJsonObject::GetString(const std::wstring& key) const
{
    auto found = members->find(key);
    if (found == members->end() || found->second->type != wJsonType::string)
        return std::wstring();
    return std::wstring(static_cast<const wJsonString*>(found->second)->Text());
}
