// The reader of the objects format's file members: strict, since each value decides what is
// fetched from where, and a hostile list must cost nothing.
#include "release/item_objects.h"
#include "json/value.h"

#include <algorithm>
#include <cmath>

namespace {

bool IsHexDigit(wchar_t c)
{
    return (c >= L'0' && c <= L'9') || (c >= L'A' && c <= L'F') || (c >= L'a' && c <= L'f');
}

// 40 hexadecimal digits, returned in upper case.
bool ReadSha1Text(const wJsonValue* value, std::wstring& text)
{
    if (!value || value->type != wJsonType::string)
        return false;
    std::wstring_view digits = static_cast<const wJsonString*>(value)->Text();
    if (digits.size() != 40 || !std::all_of(digits.begin(), digits.end(), IsHexDigit))
        return false;
    text.assign(digits);
    for (auto& c : text)
        if (c >= L'a')
            c = static_cast<wchar_t>(c - L'a' + L'A');
    return true;
}

bool IsPathCharacter(wchar_t c)
{
    return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || (c >= L'0' && c <= L'9') || c == L'-' ||
           c == L'.' || c == L'_' || c == L'~' || c == L'/';
}

bool ReadSize(const wJsonValue* value, uint64_t& size)
{
    return value && value->type == wJsonType::number &&
           ReadObjectsSize(static_cast<const wJsonNumber*>(value)->Value(), size);
}

// {"u": path, "s": size}, the size from 1 up: an empty object is never worth a request.
bool ReadObject(const wJsonValue* value, ItemObject& object)
{
    if (!value || value->type != wJsonType::object)
        return false;
    auto& members = *static_cast<const wJsonObject*>(value);
    const wJsonValue* u = members.Get(L"u");
    if (!u || u->type != wJsonType::string)
        return false;
    std::wstring_view path = static_cast<const wJsonString*>(u)->Text();
    if (path.size() < 2 || path.size() > kMaxObjectPath || path[0] != L'/' ||
        !std::all_of(path.begin(), path.end(), IsPathCharacter))
        return false;
    if (!ReadSize(members.Get(L"s"), object.size) || object.size == 0)
        return false;
    object.path.assign(path);
    return true;
}

bool ReadPatches(const wJsonValue* value, std::vector<ItemPatch>& patches)
{
    if (!value || value->type != wJsonType::array)
        return false;
    auto& list = *static_cast<const wJsonArray*>(value);
    if (list.Count() > kMaxPatches)
        return false;
    for (const wJsonValue* element : list) {
        ItemPatch patch;
        if (!ReadObject(element, patch.object) ||
            !ReadSha1Text(static_cast<const wJsonObject*>(element)->Get(L"h"), patch.base))
            return false;
        for (const ItemPatch& earlier : patches)
            if (earlier.base == patch.base)
                return false;
        patches.push_back(std::move(patch));
    }
    return true;
}

}  // namespace

bool IsObjectsFormat(const wJsonObject& manifest)
{
    const wJsonValue* format = manifest.Get(L"format");
    return format && format->type == wJsonType::number &&
           static_cast<const wJsonNumber*>(format)->Value() == kObjectsFormat;
}

bool ReadObjectsSize(double value, uint64_t& size)
{
    // The comparisons are false for NaN, which is refused with the rest.
    if (!(value >= 0 && value <= static_cast<double>(kMaxObjectsSize)) || std::floor(value) != value)
        return false;
    size = static_cast<uint64_t>(value);
    return true;
}

bool ReadItemObjects(const wJsonObject& file, uint64_t& size, ItemObjects& objects)
{
    std::wstring hash;
    if (!ReadSha1Text(file.Get(L"h"), hash) || !ReadSize(file.Get(L"s"), size))
        return false;
    ItemObjects read;
    read.listed = true;
    const wJsonValue* z = file.Get(L"z");
    if (z && !ReadObject(z, read.compressed))
        return false;
    const wJsonValue* p = file.Get(L"p");
    if (p && !ReadPatches(p, read.patches))
        return false;
    objects = std::move(read);
    return true;
}
