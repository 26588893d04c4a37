// The files of a manifest of the objects format: sizes up to 2^53, compressed objects and patches
// read strictly, a file with any member out of shape skipped; a manifest without "format" 2 read
// as before.
#include <gtest/gtest.h>
#include "json/value.h"
#include "release/item_objects.h"
#include "release/manifest_source.h"

#include <limits>
#include <string>
#include <vector>

namespace {

const std::wstring kHash = L"0123456789ABCDEF0123456789ABCDEF01234567";
const std::wstring kBase = L"89ABCDEF0123456789ABCDEF0123456789ABCDEF";

std::vector<ManifestFile> Read(const std::wstring& text)
{
    const wchar_t* cursor = text.c_str();
    wJsonObject* manifest = wJsonObject::Parse(cursor);
    EXPECT_NE(manifest, nullptr) << "not JSON: " << std::string(text.begin(), text.end());
    std::vector<ManifestFile> files;
    if (manifest) {
        EXPECT_TRUE(ReadManifestFiles(*manifest, files));
        manifest->Release();
    }
    return files;
}

// A manifest of the objects format with one file whose members past "n" and "h" are `members`.
std::wstring OneFile(const std::wstring& members, const std::wstring& format = L"2")
{
    return L"{\"format\": " + format + L", \"files\": [{\"n\": \"bin/a.dll\", \"h\": \"" + kHash + L"\", " + members +
           L"}]}";
}

bool Accepted(const std::wstring& members)
{
    return Read(OneFile(members)).size() == 1;
}

std::wstring Patch(const std::wstring& base, const std::wstring& path = L"/objects/p.zst", const std::wstring& size = L"10")
{
    return L"{\"h\": \"" + base + L"\", \"u\": \"" + path + L"\", \"s\": " + size + L"}";
}

}  // namespace

TEST(ItemObjects, ReadsTheCompressedObjectAndThePatches)
{
    std::wstring lower = L"89abcdef0123456789abcdef0123456789abcdef";
    auto files = Read(OneFile(L"\"s\": 9007199254740992, \"sha256\": \"AB\", "
                              L"\"z\": {\"u\": \"/objects/Z-1.zst\", \"s\": 4000000000}, \"p\": [" +
                              Patch(lower, L"/o/a_b~c.zst", L"12") + L", " + Patch(kHash, L"/o/x", L"1") + L"]"));
    ASSERT_EQ(files.size(), 1u);
    const ManifestFile& file = files[0];
    EXPECT_EQ(file.name, L"bin\\a.dll");
    EXPECT_EQ(file.hash, kHash);
    EXPECT_EQ(file.size, 9007199254740992ull);
    EXPECT_EQ(file.sha256, L"AB");
    EXPECT_TRUE(file.objects.listed);
    EXPECT_EQ(file.objects.compressed.path, L"/objects/Z-1.zst");
    EXPECT_EQ(file.objects.compressed.size, 4000000000ull);
    ASSERT_EQ(file.objects.patches.size(), 2u);
    EXPECT_EQ(file.objects.patches[0].base, kBase);
    EXPECT_EQ(file.objects.patches[0].object.path, L"/o/a_b~c.zst");
    EXPECT_EQ(file.objects.patches[0].object.size, 12u);
    EXPECT_EQ(file.objects.patches[1].base, kHash);
    EXPECT_EQ(file.objects.patches[1].object.size, 1u);
}

TEST(ItemObjects, AFileWithoutFormsIsStillOfTheFormat)
{
    auto files = Read(OneFile(L"\"s\": 0"));
    ASSERT_EQ(files.size(), 1u);
    EXPECT_TRUE(files[0].objects.listed);
    EXPECT_EQ(files[0].objects.compressed.size, 0u);
    EXPECT_TRUE(files[0].objects.patches.empty());
}

TEST(ItemObjects, SizesAreIntegersUpTo2Pow53)
{
    EXPECT_TRUE(Accepted(L"\"s\": 314572800"));
    EXPECT_TRUE(Accepted(L"\"s\": 4831838208"));
    for (const wchar_t* size : {L"9007199254740994", L"18446744073709551616", L"-1", L"-0.5", L"1.5", L"\"5\"", L"null", L"true"})
        EXPECT_FALSE(Accepted(std::wstring(L"\"s\": ") + size)) << size;
    EXPECT_FALSE(Accepted(L"\"x\": 1"));
    for (const wchar_t* size : {L"0", L"-3", L"2.5", L"9007199254740994", L"\"7\""})
        EXPECT_FALSE(Accepted(std::wstring(L"\"s\": 1, \"z\": {\"u\": \"/o/z\", \"s\": ") + size + L"}")) << size;
}

TEST(ItemObjects, HashesAre40HexadecimalDigits)
{
    for (const std::wstring& hash : {kHash.substr(1), kHash + L"0", L"G" + kHash.substr(1), std::wstring(40, L'_')}) {
        std::wstring text = L"{\"format\": 2, \"files\": [{\"n\": \"a\", \"h\": \"" + hash + L"\", \"s\": 1}]}";
        EXPECT_TRUE(Read(text).empty()) << std::string(hash.begin(), hash.end());
    }
    EXPECT_FALSE(Accepted(L"\"s\": 1, \"p\": [" + Patch(kBase.substr(1)) + L"]"));
    EXPECT_FALSE(Accepted(L"\"s\": 1, \"p\": [" + Patch(L"Z" + kBase.substr(1)) + L"]"));
    EXPECT_FALSE(Accepted(L"\"s\": 1, \"p\": [{\"u\": \"/o/p\", \"s\": 1}]"));
}

TEST(ItemObjects, ObjectPathsAreAbsoluteAndPlain)
{
    EXPECT_TRUE(Accepted(L"\"s\": 1, \"z\": {\"u\": \"/a-Z_0.9~/b\", \"s\": 1}"));
    for (const wchar_t* path : {L"", L"/", L"objects/z", L"/a b", L"/a?b", L"/a#b", L"/a%20b", L"/a\\\\b",
                                L"/\\u00e9", L"/a\\u0000", L"http://x/y"})
        EXPECT_FALSE(Accepted(L"\"s\": 1, \"z\": {\"u\": \"" + std::wstring(path) + L"\", \"s\": 1}")) << path;
    EXPECT_TRUE(Accepted(L"\"s\": 1, \"z\": {\"u\": \"/" + std::wstring(kMaxObjectPath - 1, L'a') + L"\", \"s\": 1}"));
    EXPECT_FALSE(Accepted(L"\"s\": 1, \"z\": {\"u\": \"/" + std::wstring(kMaxObjectPath, L'a') + L"\", \"s\": 1}"));
    for (const wchar_t* z : {L"\"/o/z\"", L"[]", L"null", L"{\"s\": 1}", L"{\"u\": 5, \"s\": 1}"})
        EXPECT_FALSE(Accepted(std::wstring(L"\"s\": 1, \"z\": ") + z)) << z;
}

TEST(ItemObjects, PatchListsAreBoundedAndDistinct)
{
    auto list = [](size_t count) {
        std::wstring text = L"\"s\": 1, \"p\": [";
        for (size_t i = 0; i < count; ++i) {
            std::wstring base(40, L'0');
            base[38] = L"0123456789ABCDEF"[i / 16];
            base[39] = L"0123456789ABCDEF"[i % 16];
            text += (i ? L", " : L"") + Patch(base);
        }
        return text + L"]";
    };
    EXPECT_TRUE(Accepted(list(kMaxPatches)));
    EXPECT_FALSE(Accepted(list(kMaxPatches + 1)));
    EXPECT_TRUE(Accepted(L"\"s\": 1, \"p\": []"));
    std::wstring lower = L"89abcdef0123456789abcdef0123456789abcdef";
    EXPECT_FALSE(Accepted(L"\"s\": 1, \"p\": [" + Patch(kBase) + L", " + Patch(lower, L"/o/q") + L"]"));
    for (const wchar_t* p : {L"{}", L"\"x\"", L"[1]", L"[[]]", L"null"})
        EXPECT_FALSE(Accepted(std::wstring(L"\"s\": 1, \"p\": ") + p)) << p;
}

TEST(ItemObjects, OneBadFileIsSkippedAndTheOthersKept)
{
    auto files = Read(L"{\"format\": 2, \"files\": [{\"n\": \"a\", \"h\": \"" + kHash + L"\", \"s\": -1}, {\"n\": \"b\", \"h\": \"" +
                      kHash + L"\", \"s\": 2, \"z\": {\"u\": \"/z\", \"s\": 1}}, 7, {\"n\": \"c\", \"h\": \"" + kHash +
                      L"\", \"s\": 3, \"z\": {\"u\": \"/z\", \"s\": 0}}]}");
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].name, L"b");
}

TEST(ItemObjects, OtherManifestsAreReadAsBefore)
{
    for (const wchar_t* format : {L"1", L"3", L"2.5", L"\"2\"", L"null"}) {
        auto files = Read(OneFile(L"\"s\": -1, \"z\": \"ignored\"", format));
        ASSERT_EQ(files.size(), 1u) << format;
        EXPECT_FALSE(files[0].objects.listed);
        EXPECT_EQ(files[0].size, ~0ull);
    }
    auto files = Read(L"{\"files\": [{\"n\": \"a\", \"h\": \"any text\", \"s\": 314572800, \"p\": 5}]}");
    ASSERT_EQ(files.size(), 1u);
    EXPECT_FALSE(files[0].objects.listed);
    EXPECT_EQ(files[0].hash, L"any text");
    EXPECT_EQ(files[0].size, 314572800u);
}

TEST(ItemObjects, ObjectsSizeRule)
{
    uint64_t size = 7;
    EXPECT_TRUE(ReadObjectsSize(0.0, size));
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(ReadObjectsSize(9007199254740992.0, size));
    EXPECT_EQ(size, kMaxObjectsSize);
    EXPECT_FALSE(ReadObjectsSize(9007199254740994.0, size));
    EXPECT_FALSE(ReadObjectsSize(-1.0, size));
    EXPECT_FALSE(ReadObjectsSize(0.25, size));
    EXPECT_FALSE(ReadObjectsSize(std::numeric_limits<double>::quiet_NaN(), size));
    EXPECT_FALSE(ReadObjectsSize(std::numeric_limits<double>::infinity(), size));
    EXPECT_EQ(size, kMaxObjectsSize);
}
