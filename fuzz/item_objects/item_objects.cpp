// Fuzz target of the objects format's file members: the input, decoded from UTF-8 as a manifest
// body is, parsed as a manifest, and every element of "files" read as a file of the objects
// format. What is accepted must hold only values the download may use as they are.
#include "json/value.h"
#include "runtime/text.h"
#include "release/item_objects.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

void Fail(const char* what)
{
    std::fprintf(stderr, "item_objects: %s\n", what);
    std::abort();
}

void CheckObject(const ItemObject& object)
{
    if (object.size == 0 || object.size > kMaxObjectsSize)
        Fail("an object size outside 1 to 2^53");
    if (object.path.size() < 2 || object.path.size() > kMaxObjectPath || object.path[0] != L'/')
        Fail("an object path that is not absolute or is out of bounds");
    for (wchar_t c : object.path)
        if (c <= L' ' || c > L'~' || c == L'?' || c == L'#' || c == L'%' || c == L'\\')
            Fail("an object path with a character that is not plain");
}

void CheckBase(const std::wstring& base)
{
    if (base.size() != 40)
        Fail("a patch base that is not 40 digits");
    for (wchar_t c : base)
        if (!((c >= L'0' && c <= L'9') || (c >= L'A' && c <= L'F')))
            Fail("a patch base that is not upper-case hexadecimal");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::wstring text = Utf8ToWide(reinterpret_cast<const char*>(data), static_cast<ptrdiff_t>(size));
    const wchar_t* cursor = text.c_str();
    wJsonObject* manifest = wJsonObject::Parse(cursor);
    if (!manifest)
        return 0;
    IsObjectsFormat(*manifest);
    if (const wJsonArray* files = manifest->GetArray(L"files")) {
        for (const wJsonValue* element : *files) {
            if (element->type != wJsonType::object)
                continue;
            uint64_t fileSize = 0;
            ItemObjects objects;
            if (!ReadItemObjects(*static_cast<const wJsonObject*>(element), fileSize, objects)) {
                if (objects.listed || objects.compressed.size != 0 || !objects.patches.empty())
                    Fail("a refused file that left members behind");
                continue;
            }
            if (!objects.listed || fileSize > kMaxObjectsSize)
                Fail("an accepted file that is not listed or is above 2^53");
            if (objects.patches.size() > kMaxPatches)
                Fail("more patches than the bound");
            if (objects.compressed.size != 0 || !objects.compressed.path.empty())
                CheckObject(objects.compressed);
            for (size_t i = 0; i < objects.patches.size(); ++i) {
                CheckObject(objects.patches[i].object);
                CheckBase(objects.patches[i].base);
                for (size_t j = 0; j < i; ++j)
                    if (objects.patches[j].base == objects.patches[i].base)
                        Fail("two patches from one base");
            }
        }
    }
    manifest->Release();
    return 0;
}
