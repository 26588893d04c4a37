// ExecuteUpdateItems: every changed file is downloaded and verified before anything on the
// machine is touched; then services stop, processes close, files are replaced and the program
// is started, each step logging one line per object.
#include "app/execute.h"
#include "app/config.h"
#include "app/control.h"
#include "json/value.h"
#include "runtime/handles.h"
#include "runtime/logger.h"
#include "runtime/text.h"
#include "release/download.h"
#include "release/manifest_source.h"
#include "runtime/safe_name.h"
#include "release/sha256_file.h"
#include "release/update_item.h"

#include <windows.h>

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

bool Exists(const std::wstring& path, bool& isFolder)
{
    DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return false;
    isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return true;
}

// Peers first with short time-outs, then the servers; false when neither delivered.
bool Download(const std::wstring& stagingDirectory, const std::wstring& urlPrefix, UpdateItem& item)
{
    UpdaterConfig& config = *updaterConfig;
    std::wstring staged = FormatW(L"%s\\%s", stagingDirectory.c_str(), item.name.c_str());
    FileDigest digest = HashFile(staged, item.objects.HashLimit());
    if (EqualsNoCase(digest.hash, item.hash) && digest.size == item.size &&
        (item.sha256.empty() || FileMatchesSha256(staged, item.sha256))) {
        LogW(L"Pass. %s", item.name.c_str());
        return true;
    }

    std::vector<std::wstring> peers;
    std::wstring joined;
    for (uint32_t address : item.peers) {
        std::wstring text = FormatIPv4(address);
        peers.push_back(FormatW(L"%s:%u", text.c_str(), static_cast<unsigned>(config.httpSharePort)));
        joined += joined.empty() ? text : L" " + text;
    }
    if (!joined.empty())
        LogW(L"Peers for (%s) (%s)", item.name.c_str(), joined.c_str());

    bool done = false;
    uint32_t connectTimeout = 500, receiveTimeout = 200;
    DownloadRequest request{staged, urlPrefix, item, connectTimeout, receiveTimeout, digest, done};
    config.domainRing.Assign(peers);
    DownloadFromSources(config.domainRing, config.domains, request);
    if (!done) {
        connectTimeout = 0;
        receiveTimeout = 0;
        std::vector<std::wstring> servers = config.domains;
        config.domainRing.Assign(servers);
        DownloadFromSources(config.domainRing, config.domains, request);
    }
    return done;
}

void Replace(const std::wstring& source, const std::wstring& destination)
{
    for (;;) {
        bool isFolder = false;
        if (Exists(destination, isFolder)) {
            if (isFolder) {
                SetFileAttributesW(destination.c_str(), FILE_ATTRIBUTE_NORMAL);
                DeleteTree(destination);
            } else if (!DeleteFileW(destination.c_str())) {
                // A file's attributes are made normal only when it will not go as it is (when it
                // is read-only): once it is deleted nobody sees them, and setting them costs
                // three calls into the system (trips to Wine's server, under Wine).
                SetFileAttributesW(destination.c_str(), FILE_ATTRIBUTE_NORMAL);
                DeleteFileW(destination.c_str());
            }
        }
        CreateDirectoryPath(GetDirectoryPart(destination));
        if (MoveFileExW(source.c_str(), destination.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED))
            break;
        LogW(L"Failed to replace. (0x%08X) %s", GetLastError(), destination.c_str());
        Sleep(500);
    }
    LogW(L"Replaced %s", destination.c_str());
}

// Runs "net <verb> <name>" for every name in turn and hands each result to `report`, which logs
// it with its own format.
template <typename Report>
void RunServices(const std::vector<std::wstring>& names, const wchar_t* verb, Report report)
{
    for (const std::wstring& name : names)
        report(name.c_str(), RunNetCommand(verb, name));
}

// False when the manifest's program was refused.
bool StartProgram(const wJsonObject& manifest)
{
    std::wstring exe = manifest.GetString(L"exe");
    if (exe.empty())
        return true;
    if (!AcceptName(L"start", exe))
        return false;
    std::wstring application = ProgramDirectory + ManifestPath(exe);
    std::wstring commandLine = application;
    std::wstring arg = manifest.GetString(L"arg");
    if (!arg.empty())
        commandLine += FormatW(L" %s", arg.c_str());
    if (!updaterConfig->argOrg.empty())
        commandLine += FormatW(L" %s", updaterConfig->argOrg.c_str());
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (CreateProcessW(application.c_str(), &commandLine[0], nullptr, nullptr, FALSE, CREATE_NEW_CONSOLE, nullptr,
                       ProgramDirectory.c_str(), &startup, &process)) {
        // The program runs on by itself; its handles are not kept.
        UniqueHandle thread(process.hThread), started(process.hProcess);
        LogW(L"Created a process. %s", commandLine.c_str());
    } else {
        LogW(L"Failed to create a process. (0x%08X) %s", GetLastError(), application.c_str());
    }
    return true;
}

}  // namespace

bool AcceptName(const wchar_t* use, const std::wstring& name)
{
    if (!updaterConfig->Signed() || IsSafeRelativeName(name))
        return true;
    LogW(L"Refused to %s %s: the name leads outside the program folder.", use, name.c_str());
    return false;
}

bool ExecuteUpdateItems(const std::wstring& stagingDirectory, const wJsonObject& manifest)
{
    UpdaterConfig& config = *updaterConfig;
    uint32_t created = CreateDirectoryPath(stagingDirectory);
    if (created == 0)
        LogA("Created _update directory.");
    else
        LogW(L"Failed to create _update directory. (0x%08X)", created);

    std::wstring urlPrefix = manifest.GetString(L"urlPrefix");
    if (urlPrefix.empty())
        urlPrefix = L"/";

    for (UpdateItem& item : config.updateItems) {
        if (!Download(stagingDirectory, urlPrefix, item)) {
            LogW(L"Failed to download. (%s)", item.name.c_str());
            return false;
        }
    }

    RunServices(StringList(manifest, L"stop"), L"stop", [](const wchar_t* name, uint32_t result) {
        if (result == 0)
            LogW(L"Stopped %s service.", name);
        else
            LogW(L"Failed to stop %s service. (0x%08X)", name, result);
    });
    CloseProcessByName(StringList(manifest, L"close"));
    for (const std::wstring& name : StringList(manifest, L"pipe"))
        SignalPipe(name);
    KillProcessByName(StringList(manifest, L"kill"));

    bool complete = true;
    for (const std::wstring& entry : StringList(manifest, L"delete")) {
        if (!AcceptName(L"delete", entry)) {
            complete = false;
            continue;
        }
        std::wstring path = ProgramDirectory + ManifestPath(entry);
        bool isFolder = false;
        if (!Exists(path, isFolder))
            continue;
        SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        uint32_t result = isFolder ? DeleteTree(path) : (DeleteFileW(path.c_str()) ? 0 : GetLastError());
        if (result == 0)
            LogW(L"Deleted %s", path.c_str());
        else
            LogW(L"Failed to delete. (0x%08X) %s", result, path.c_str());
    }

    for (const UpdateItem& item : config.updateItems)
        Replace(FormatW(L"%s\\%s", stagingDirectory.c_str(), item.name.c_str()),
                FormatW(L"%s%s", ProgramDirectory.c_str(), item.name.c_str()));

    RunServices(StringList(manifest, L"start"), L"start", [](const wchar_t* name, uint32_t result) {
        if (result == 0)
            LogW(L"Started %s service.", name);
        else
            LogW(L"Failed to start %s service. (0x%08X)", name, result);
    });
    complete = StartProgram(manifest) && complete;
    // Not through the shell's DeleteTree: it would load shell32 and user32 at the end of every
    // update run only to remove folders that are empty by now.
    DeleteFolderTree(stagingDirectory);
    return complete;
}
