// Reads ManifestActions from a parsed manifest.
#include "app/actions.h"
#include "json/value.h"

namespace {

// The non-empty strings of an array member; absent or of another kind: none.
std::vector<std::wstring> StringList(const wJsonObject& manifest, const wchar_t* key)
{
    std::vector<std::wstring> list;
    if (const wJsonArray* array = manifest.GetArray(key)) {
        for (uint32_t i = 0; i < array->Count(); ++i) {
            std::wstring text = array->GetString(i);
            if (!text.empty())
                list.push_back(std::move(text));
        }
    }
    return list;
}

}  // namespace

ManifestActions ReadManifestActions(const wJsonObject& manifest)
{
    ManifestActions actions;
    actions.urlPrefix = manifest.GetString(L"urlPrefix");
    if (actions.urlPrefix.empty())
        actions.urlPrefix = L"/";
    actions.stop = StringList(manifest, L"stop");
    actions.close = StringList(manifest, L"close");
    actions.pipe = StringList(manifest, L"pipe");
    actions.kill = StringList(manifest, L"kill");
    actions.deletions = StringList(manifest, L"delete");
    actions.start = StringList(manifest, L"start");
    actions.exe = manifest.GetString(L"exe");
    actions.arg = manifest.GetString(L"arg");
    return actions;
}
