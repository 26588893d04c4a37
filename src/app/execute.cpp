// ExecuteUpdateItems: once every changed file is staged, services stop, processes close, files
// are deleted and replaced, services start and the program is started, each step logging one
// line per object.
#include "app/execute.h"
#include "app/actions.h"
#include "app/config.h"
#include "app/control.h"
#include "app/progress.h"
#include "runtime/folder.h"
#include "runtime/handles.h"
#include "runtime/logger.h"
#include "runtime/safe_name.h"
#include "runtime/text.h"
#include "release/manifest_source.h"

#include <windows.h>

namespace {

bool Exists(const std::wstring& path, bool& isFolder)
{
    DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return false;
    isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return true;
}

// The staged file moved over the destination in one step: at every instant the path holds the
// old file or the new one, never nothing, even if the updater is killed right here. No copy is
// allowed: a copy to another volume would write the destination piece by piece.
uint32_t MoveOver(const std::wstring& source, const std::wstring& destination)
{
    return MoveFileExW(source.c_str(), destination.c_str(), MOVEFILE_REPLACE_EXISTING) ? 0 : GetLastError();
}

// Clears what keeps a move from replacing the destination; true when something was changed.
// Windows refuses to move over a read-only file, so the attribute goes, and the file stays in
// place until the move replaces it. A folder where the manifest has a file is removed first, as
// no move replaces a folder. A missing parent folder is created.
bool ClearWay(const std::wstring& destination)
{
    DWORD attributes = GetFileAttributesW(destination.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return CreateDirectoryPath(GetDirectoryPart(destination)) == 0;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
        SetFileAttributesW(destination.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFolderTree(destination);
        return true;
    }
    return (attributes & FILE_ATTRIBUTE_READONLY) && SetFileAttributesW(destination.c_str(), FILE_ATTRIBUTE_NORMAL);
}

// Moves the staged file into place. A move that fails is tried again every 500 ms, without a
// limit and on purpose: the services and programs that held the file were stopped just before,
// so whatever still holds it lets go in time, and an installation left half replaced would be
// worse than the wait.
void Replace(const std::wstring& source, const std::wstring& destination)
{
    for (;;) {
        uint32_t error = MoveOver(source, destination);
        if (error != 0 && ClearWay(destination))
            error = MoveOver(source, destination);
        if (error == 0)
            break;
        LogW(L"Failed to replace. (0x%08X) %s", error, destination.c_str());
        Sleep(500);
    }
    LogW(L"Replaced %s", destination.c_str());
}

// Runs "net <verb> <name>" for every name in turn, told to the launcher as the step "<verb>Service",
// and hands each result to `report`, which logs it with its own format.
template <typename Report>
void RunServices(const std::vector<std::wstring>& names, const wchar_t* verb, Progress& progress, Report report)
{
    std::wstring step = FormatW(L"%sService", verb);
    for (const std::wstring& name : names) {
        progress.Step(step.c_str(), name);
        report(name.c_str(), RunNetCommand(verb, name));
    }
}

// The names of one action, each told to the launcher as `step` before the action runs.
const std::vector<std::wstring>& Announced(const std::vector<std::wstring>& names, Progress& progress,
                                           const wchar_t* step)
{
    for (const std::wstring& name : names)
        progress.Step(step, name);
    return names;
}

// False when the manifest's program was refused.
bool StartProgram(const UpdaterConfig& config, const std::wstring& exe, const std::wstring& arg, Progress& progress)
{
    if (exe.empty())
        return true;
    progress.Step(L"startProgram", exe);
    if (!AcceptName(config.Signed(), L"start", exe))
        return false;
    std::wstring application = config.programDirectory + ManifestPath(exe);
    std::wstring commandLine = application;
    if (!arg.empty())
        commandLine += FormatW(L" %s", arg.c_str());
    if (!config.argOrg.empty())
        commandLine += FormatW(L" %s", config.argOrg.c_str());
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (CreateProcessW(application.c_str(), &commandLine[0], nullptr, nullptr, FALSE, CREATE_NEW_CONSOLE, nullptr,
                       config.programDirectory.c_str(), &startup, &process)) {
        // The program runs on by itself; its handles are not kept.
        UniqueHandle thread(process.hThread), started(process.hProcess);
        LogW(L"Created a process. %s", commandLine.c_str());
    } else {
        LogW(L"Failed to create a process. (0x%08X) %s", GetLastError(), application.c_str());
    }
    return true;
}

}  // namespace

bool AcceptName(bool signedRelease, const wchar_t* use, const std::wstring& name)
{
    if (!signedRelease || IsSafeRelativeName(name))
        return true;
    LogW(L"Refused to %s %s: the name leads outside the program folder.", use, name.c_str());
    return false;
}

bool ExecuteUpdateItems(const UpdaterConfig& config, const std::wstring& stagingDirectory,
                        const ManifestActions& actions, const std::list<UpdateItem>& items, Progress& progress)
{
    RunServices(actions.stop, L"stop", progress, [](const wchar_t* name, uint32_t result) {
        if (result == 0)
            LogW(L"Stopped %s service.", name);
        else
            LogW(L"Failed to stop %s service. (0x%08X)", name, result);
    });
    CloseProcessByName(Announced(actions.close, progress, L"close"));
    for (const std::wstring& name : actions.pipe) {
        progress.Step(L"signal", name);
        SignalPipe(name);
    }
    KillProcessByName(Announced(actions.kill, progress, L"kill"));

    bool complete = true;
    for (const std::wstring& entry : actions.deletions) {
        if (!AcceptName(config.Signed(), L"delete", entry)) {
            complete = false;
            continue;
        }
        std::wstring path = config.programDirectory + ManifestPath(entry);
        bool isFolder = false;
        if (!Exists(path, isFolder))
            continue;
        progress.Step(L"delete", entry);
        SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        uint32_t result = isFolder ? DeleteFolderTree(path) : (DeleteFileW(path.c_str()) ? 0 : GetLastError());
        if (result == 0)
            LogW(L"Deleted %s", path.c_str());
        else
            LogW(L"Failed to delete. (0x%08X) %s", result, path.c_str());
    }

    for (const UpdateItem& item : items) {
        progress.Step(L"replace", item.name);
        Replace(FormatW(L"%s\\%s", stagingDirectory.c_str(), item.name.c_str()),
                FormatW(L"%s%s", config.programDirectory.c_str(), item.name.c_str()));
    }

    RunServices(actions.start, L"start", progress, [](const wchar_t* name, uint32_t result) {
        if (result == 0)
            LogW(L"Started %s service.", name);
        else
            LogW(L"Failed to start %s service. (0x%08X)", name, result);
    });
    complete = StartProgram(config, actions.exe, actions.arg, progress) && complete;
    DeleteFolderTree(stagingDirectory);
    return complete;
}
