// Service and process control against real programs under Wine: net.exe with a registered test
// service and with a recording stand-in for net.exe, closing windowed programs, terminating one
// of two same-named processes, signalling a pipe server, and creating and deleting folders.
// Every program a test acts on by name is a copy with a name of the test's own, and every test
// that reads the log writes it under a date of its own, so tests can run side by side.
#include <gtest/gtest.h>
#include "app/control.h"
#include "runtime/folder.h"
#include "runtime/handles.h"
#include "runtime/logger.h"
#include "runtime/text.h"
#include "support/patience.h"

#include <windows.h>
#include <tlhelp32.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

namespace {

// The folder of app_tests.exe; the helper programs lie one level up.
std::wstring ProgramFolder()
{
    return GetDirectoryPart(GetModulePath());
}

std::wstring HelperPath(const wchar_t* name)
{
    return GetDirectoryPart(ProgramFolder()) + L"\\" + name;
}

// An empty folder of the test's own under the test program's folder.
std::wstring FreshFolder(const wchar_t* name)
{
    std::wstring path = ProgramFolder() + L"\\control-work\\" + name;
    std::error_code error;
    std::filesystem::remove_all(path, error);
    std::filesystem::create_directories(path, error);
    return path;
}

// A copy of a helper program under a new name, so that only this test's processes carry it.
std::wstring CopyHelper(const wchar_t* helper, const std::wstring& folder, const wchar_t* name)
{
    std::wstring path = folder + L"\\" + name;
    CopyFileW(HelperPath(helper).c_str(), path.c_str(), FALSE);
    return path;
}

std::string ReadText(const std::wstring& path)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return std::string();
    std::string data;
    char buffer[4096];
    DWORD read;
    while (ReadFile(file, buffer, sizeof(buffer), &read, nullptr) && read > 0)
        data.append(buffer, read);
    CloseHandle(file);
    return data;
}

// A started program; terminated when the test ends if it still runs.
class Child {
public:
    Child(const std::wstring& program, const std::wstring& arguments)
    {
        std::wstring commandLine = L"\"" + program + L"\" " + arguments;
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        CreateProcessW(program.c_str(), &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child()
    {
        if (!info.hProcess)
            return;
        TerminateProcess(info.hProcess, 1);
        WaitForSingleObject(info.hProcess, PatienceMs());
        CloseHandle(info.hThread);
        CloseHandle(info.hProcess);
    }
    bool Started() const { return info.hProcess != nullptr; }
    uint32_t Id() const { return info.dwProcessId; }
    bool Running() const { return WaitForSingleObject(info.hProcess, 0) == WAIT_TIMEOUT; }
    bool WaitEnd(DWORD timeoutMs) const { return WaitForSingleObject(info.hProcess, timeoutMs) == WAIT_OBJECT_0; }
    uint32_t ExitCode() const
    {
        DWORD code = 0;
        GetExitCodeProcess(info.hProcess, &code);
        return code;
    }

private:
    PROCESS_INFORMATION info = {};
};

// Ids of the running processes with this executable name, in the snapshot's order.
std::vector<uint32_t> ProcessIdsNamed(const wchar_t* name)
{
    std::vector<uint32_t> ids;
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry;
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry))
        if (!lstrcmpiW(entry.szExeFile, name))
            ids.push_back(entry.th32ProcessID);
    CloseHandle(snapshot);
    return ids;
}

SYSTEMTIME logDate;

void LogDate(SYSTEMTIME* time)
{
    *time = logDate;
}

// Runs the logger for one test, writing to the file of a day of the test's own.
class LogCapture {
public:
    explicit LogCapture(WORD day)
    {
        logDate = {};
        logDate.wYear = 2041;
        logDate.wMonth = 3;
        logDate.wDay = day;
        logDate.wHour = 12;
        wLogger::localTime = LogDate;
        path = FormatW(L"%s\\_logs\\app_tests.exe 2041-03-%02d.log", ProgramFolder().c_str(), day);
        DeleteFileW(path.c_str());
        wLogger::Create();
    }
    ~LogCapture()
    {
        wLogger::Stop();
        wLogger::localTime = GetLocalTime;
    }
    // Stops the logger and returns the messages written, each checked for its time prefix.
    std::vector<std::string> Messages()
    {
        wLogger::Stop();
        std::string text = ReadText(path);
        std::vector<std::string> messages;
        static const std::regex entry("\\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\d{4}\\.\\d{3}\\.\\d{3} (.*)");
        for (size_t start = 3, end; start < text.size(); start = end + 2) {
            end = text.find("\r\n", start);
            std::smatch match;
            std::string line = text.substr(start, end - start);
            messages.push_back(std::regex_match(line, match, entry) ? match[1].str() : "<raw>" + line);
            if (end == std::string::npos)
                break;
        }
        return messages;
    }

private:
    std::wstring path;
};

using Lines = std::vector<std::string>;

// Starts the window program under a new name and waits until its windows are shown; the
// handle it reports is returned in `shown`.
struct WindowApp {
    WindowApp(const std::wstring& folder, const wchar_t* name, const wchar_t* mode)
        : record(folder + L"\\" + name + L".record"),
          child(CopyHelper(L"window_app.exe", folder, name), L"\"" + record + L"\" " + mode)
    {
        if (child.Started() && WaitUntil([this] { return ReadText(record).find("\r\n") != std::string::npos; })) {
            readyLine = ReadText(record);
            shown = reinterpret_cast<HWND>(static_cast<uintptr_t>(strtoull(readyLine.c_str() + 6, nullptr, 10)));
        }
    }
    std::wstring record;
    Child child;
    std::string readyLine;
    HWND shown = nullptr;
};

// --- net.exe ---------------------------------------------------------------------------------

// Registers a service that runs net_service.exe under a name of the test's own, and removes
// it again at the end.
class NetServiceTest : public testing::Test {
protected:
    void Register(const std::wstring& name)
    {
        manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        ASSERT_TRUE(manager) << GetLastError();
        // A copy left registered by an interrupted run goes first.
        if (SC_HANDLE stale = OpenServiceW(manager, name.c_str(), SERVICE_ALL_ACCESS))
            Remove(stale);
        std::wstring binary = L"\"" + HelperPath(L"net_service.exe") + L"\"";
        service = CreateServiceW(manager, name.c_str(), name.c_str(), SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                 SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE, binary.c_str(), nullptr, nullptr, nullptr,
                                 nullptr, nullptr);
        ASSERT_TRUE(service) << GetLastError();
    }
    void TearDown() override
    {
        if (service)
            Remove(service);
        if (manager)
            CloseServiceHandle(manager);
    }
    static DWORD State(SC_HANDLE handle)
    {
        SERVICE_STATUS status;
        return QueryServiceStatus(handle, &status) ? status.dwCurrentState : 0;
    }
    bool WaitState(DWORD state) const
    {
        return WaitUntil([this, state] { return State(service) == state; });
    }
    static void Remove(SC_HANDLE handle)
    {
        SERVICE_STATUS status;
        ControlService(handle, SERVICE_CONTROL_STOP, &status);
        WaitUntil([handle] { return State(handle) == SERVICE_STOPPED; });
        DeleteService(handle);
        CloseServiceHandle(handle);
    }

    SC_HANDLE manager = nullptr;
    SC_HANDLE service = nullptr;
};

std::wstring fakeSystemFolder;
uint32_t systemBufferSize;

uint32_t FakeSystemDirectory(wchar_t* buffer, uint32_t size)
{
    systemBufferSize = size;
    wcsncpy(buffer, fakeSystemFolder.c_str(), size);
    return static_cast<uint32_t>(fakeSystemFolder.size());
}

// Fails as GetSystemDirectoryW does, after leaving text in the buffer that must not be used.
uint32_t FailingSystemDirectory(wchar_t* buffer, uint32_t size)
{
    systemBufferSize = size;
    wcsncpy(buffer, L"Z:\\not-the-system-folder", size);
    return 0;
}

// Puts a replacement for GetSystemDirectoryW in place for one test.
struct SystemDirectorySeam {
    explicit SystemDirectorySeam(uint32_t (*replacement)(wchar_t*, uint32_t)) : saved(readSystemDirectory)
    {
        readSystemDirectory = replacement;
    }
    ~SystemDirectorySeam() { readSystemDirectory = saved; }
    uint32_t (*saved)(wchar_t*, uint32_t);
};

// Wine's net.exe exits with 1 on every failure (Windows gives 2).
constexpr uint32_t kWineNetFailure = 1;

}  // namespace

TEST_F(NetServiceTest, StopsAndStartsThroughNetExe)
{
    const std::wstring name = L"VeyControlService";
    Register(name);
    ASSERT_EQ(State(service), static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_EQ(RunNetCommand(L"start", name), 0u);
    EXPECT_TRUE(WaitState(SERVICE_RUNNING));
    EXPECT_EQ(RunNetCommand(L"start", name), kWineNetFailure);
    EXPECT_EQ(RunNetCommand(L"stop", name), 0u);
    EXPECT_TRUE(WaitState(SERVICE_STOPPED));
    EXPECT_EQ(RunNetCommand(L"stop", name), kWineNetFailure);
}

TEST(NetCommand, UnknownServiceFails)
{
    EXPECT_EQ(RunNetCommand(L"stop", L"VeyControlNoSuchService"), kWineNetFailure);
    EXPECT_EQ(RunNetCommand(L"start", L"VeyControlNoSuchService"), kWineNetFailure);
}

TEST_F(NetServiceTest, ServiceNameWithBlanks)
{
    const std::wstring name = L"Vey Control Blank Service";
    Register(name);
    EXPECT_EQ(RunNetCommand(L"start", name), 0u);
    EXPECT_TRUE(WaitState(SERVICE_RUNNING));
    EXPECT_EQ(RunNetCommand(L"stop", name), 0u);
    EXPECT_TRUE(WaitState(SERVICE_STOPPED));
}

TEST(NetCommand, CommandLineQuotesTheServiceName)
{
    std::wstring folder = FreshFolder(L"fake-system");
    CopyHelper(L"launch_recorder.exe", folder, L"net.exe");
    fakeSystemFolder = folder;
    SystemDirectorySeam seam(FakeSystemDirectory);
    wchar_t current[4096];
    DWORD length = GetCurrentDirectoryW(4096, current);

    EXPECT_EQ(RunNetCommand(L"stop", L"Vey Blank Service"), 0x1234u);
    EXPECT_EQ(systemBufferSize, 4096u);
    EXPECT_EQ(ReadText(folder + L"\\net.exe.txt"),
              WideToUtf8(folder + L"\\net.exe stop \"Vey Blank Service\"\r\n" + std::wstring(current, length) + L"\r\n"));

    EXPECT_EQ(RunNetCommand(L"start", L"Plain"), 0x1234u);
    EXPECT_EQ(ReadText(folder + L"\\net.exe.txt"),
              WideToUtf8(folder + L"\\net.exe start \"Plain\"\r\n" + std::wstring(current, length) + L"\r\n"));
}

TEST_F(NetServiceTest, FailingSystemDirectoryRunsNetFromWindowsSystem32)
{
    const std::wstring name = L"VeyControlFallbackService";
    Register(name);
    SystemDirectorySeam seam(FailingSystemDirectory);
    EXPECT_EQ(RunNetCommand(L"start", name), 0u);
    EXPECT_EQ(systemBufferSize, 4096u);
    EXPECT_TRUE(WaitState(SERVICE_RUNNING));
    EXPECT_EQ(RunNetCommand(L"stop", L"VeyControlNoSuchService"), kWineNetFailure);
}

TEST(NetCommand, MissingNetExeGivesTheStartError)
{
    fakeSystemFolder = FreshFolder(L"empty-system");
    SystemDirectorySeam seam(FakeSystemDirectory);
    EXPECT_EQ(RunNetCommand(L"stop", L"Anything"), static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
}

// --- windows and closing ---------------------------------------------------------------------

TEST(FindMainWindow, TakesTheVisibleUnownedWindowOnly)
{
    std::wstring folder = FreshFolder(L"find-main");
    WindowApp app(folder, L"find_main.exe", L"");
    ASSERT_TRUE(app.shown) << app.readyLine;
    EXPECT_EQ(FindMainWindow(app.child.Id()), app.shown);

    WindowApp owned(folder, L"find_owned.exe", L"owned");
    ASSERT_TRUE(owned.shown) << owned.readyLine;
    EXPECT_EQ(FindMainWindow(owned.child.Id()), nullptr);
    EXPECT_EQ(FindMainWindow(GetCurrentProcessId()), nullptr);
}

TEST(CloseProcess, PostsCloseThenNoticeAndWaitsForTheEnd)
{
    std::wstring folder = FreshFolder(L"close-visible");
    WindowApp app(folder, L"close_visible.exe", L"");
    ASSERT_TRUE(app.shown) << app.readyLine;
    std::string id = std::to_string(app.child.Id());

    LogCapture log(1);
    CloseProcessByName({L"vey_not_running.exe", L"CLOSE_Visible.EXE"});
    EXPECT_EQ(log.Messages(), (Lines{"Closing close_visible.exe(" + id + ") process.",
                                     "Closed close_visible.exe(" + id + ") is closed."}));
    EXPECT_EQ(ReadText(app.record), app.readyLine + "WM_CLOSE\r\n0x6207\r\n");
    EXPECT_FALSE(app.child.Running());
    EXPECT_EQ(app.child.ExitCode(), 0u);
}

TEST(CloseProcess, OnlyHiddenOrOwnedWindowsGetNothing)
{
    std::wstring folder = FreshFolder(L"close-owned");
    WindowApp app(folder, L"close_owned.exe", L"owned");
    ASSERT_TRUE(app.shown) << app.readyLine;

    LogCapture log(2);
    CloseProcessByName({L"close_owned.exe"});
    Sleep(300);
    EXPECT_EQ(log.Messages(), Lines{});
    EXPECT_EQ(ReadText(app.record), app.readyLine);
    EXPECT_TRUE(app.child.Running());
}

TEST(CloseProcess, OnlyTheFirstOfTwoSameNamedIsClosed)
{
    std::wstring folder = FreshFolder(L"close-twins");
    WindowApp one(folder, L"close_twin.exe", L"");
    std::wstring secondFolder = FreshFolder(L"close-twins-2");
    WindowApp two(secondFolder, L"close_twin.exe", L"");
    ASSERT_TRUE(one.shown && two.shown);
    std::vector<uint32_t> order = ProcessIdsNamed(L"close_twin.exe");
    ASSERT_EQ(order.size(), 2u);
    WindowApp& first = order[0] == one.child.Id() ? one : two;
    WindowApp& second = order[0] == one.child.Id() ? two : one;
    std::string id = std::to_string(order[0]);

    LogCapture log(3);
    CloseProcessByName({L"close_twin.exe"});
    EXPECT_EQ(log.Messages(), (Lines{"Closing close_twin.exe(" + id + ") process.",
                                     "Closed close_twin.exe(" + id + ") is closed."}));
    EXPECT_FALSE(first.child.Running());
    EXPECT_TRUE(second.child.Running());
    EXPECT_EQ(ReadText(second.record), second.readyLine);
}

// --- terminating -----------------------------------------------------------------------------

TEST(KillProcess, OnlyTheFirstOfTwoSameNamedIsTerminated)
{
    std::wstring folder = FreshFolder(L"kill-twins");
    std::wstring program = CopyHelper(L"sleeper.exe", folder, L"kill_twin.exe");
    Child one(program, L"60000");
    Child two(program, L"60000");
    ASSERT_TRUE(one.Started() && two.Started());
    std::vector<uint32_t> order = ProcessIdsNamed(L"kill_twin.exe");
    ASSERT_EQ(order.size(), 2u);
    Child& first = order[0] == one.Id() ? one : two;
    Child& second = order[0] == one.Id() ? two : one;

    LogCapture log(4);
    KillProcessByName({L"KILL_TWIN.EXE"});
    EXPECT_EQ(log.Messages(), Lines{"Terminated kill_twin.exe process."});
    EXPECT_FALSE(first.Running());
    EXPECT_EQ(first.ExitCode(), 0xFFFFFFFFu);
    EXPECT_TRUE(second.Running());
}

TEST(KillProcess, NoMatchingProcessDoesNothing)
{
    // The empty name must not match a process that the snapshot lists while it is starting.
    LogCapture log(5);
    KillProcessByName({L"vey_not_running.exe", L""});
    CloseProcessByName({L"vey_not_running.exe", L""});
    KillProcessByName({});
    EXPECT_EQ(log.Messages(), Lines{});
}

// --- pipes -----------------------------------------------------------------------------------

TEST(SignalPipe, ServerSeesOneConnection)
{
    std::wstring folder = FreshFolder(L"pipe");
    std::wstring record = folder + L"\\pipe.record";
    std::wstring name = FormatW(L"vey-control-%u", GetCurrentProcessId());
    Child server(HelperPath(L"pipe_server.exe"), name + L" \"" + record + L"\"");
    ASSERT_TRUE(WaitUntil([&] { return ReadText(record) == "listening\r\n"; }));

    SignalPipe(name);
    EXPECT_TRUE(server.WaitEnd(PatienceMs()));
    EXPECT_EQ(server.ExitCode(), 0u);
    EXPECT_EQ(ReadText(record), "listening\r\nconnected\r\nclient waiting\r\n");
}

TEST(SignalPipe, MissingPipeIsSkippedSilently)
{
    LogCapture log(6);
    DWORD start = GetTickCount();
    SignalPipe(L"vey-control-no-such-pipe");
    EXPECT_LT(GetTickCount() - start, 1000u);
    EXPECT_EQ(log.Messages(), Lines{});
}

// --- folders ---------------------------------------------------------------------------------

TEST(Folders, CreateDirectoryPathResults)
{
    std::wstring folder = FreshFolder(L"create");
    std::wstring nested = folder + L"\\a\\b b\\c";
    EXPECT_EQ(CreateDirectoryPath(nested), 0u);
    DWORD attributes = GetFileAttributesW(nested.c_str());
    ASSERT_NE(attributes, INVALID_FILE_ATTRIBUTES);
    EXPECT_TRUE(attributes & FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(CreateDirectoryPath(nested), 0xB7u);
    EXPECT_EQ(CreateDirectoryPath(L"relative\\folder"), 161u);
    EXPECT_EQ(GetFileAttributesW(L"relative"), INVALID_FILE_ATTRIBUTES);
}

TEST(Folders, CreateDirectoryPathStopsAtAFileInTheWay)
{
    std::wstring folder = FreshFolder(L"create-file");
    std::wstring file = folder + L"\\in-the-way";
    UniqueHandle created(CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    ASSERT_TRUE(created);
    created.Reset();
    EXPECT_EQ(CreateDirectoryPath(file), 0xB7u);
    EXPECT_EQ(CreateDirectoryPath(file + L"\\a\\b"), 3u);
    EXPECT_EQ(GetFileAttributesW(file.c_str()) & FILE_ATTRIBUTE_DIRECTORY, 0u);
    EXPECT_EQ(CreateDirectoryPath(folder + L"\\trailing\\"), 0u);
    EXPECT_NE(GetFileAttributesW((folder + L"\\trailing").c_str()) & FILE_ATTRIBUTE_DIRECTORY, 0u);
}

TEST(Folders, DeleteFolderTreeRemovesReadOnlyAndHiddenFiles)
{
    std::wstring folder = FreshFolder(L"delete");
    std::wstring root = folder + L"\\tree";
    ASSERT_EQ(CreateDirectoryPath(root + L"\\sub\\deeper"), 0u);
    ASSERT_EQ(CreateDirectoryPath(root + L"\\empty"), 0u);
    struct {
        const wchar_t* name;
        DWORD attributes;
    } files[] = {{L"\\plain.txt", 0},
                 {L"\\read-only.txt", FILE_ATTRIBUTE_READONLY},
                 {L"\\sub\\hidden.txt", FILE_ATTRIBUTE_HIDDEN},
                 {L"\\sub\\deeper\\both.txt", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM}};
    for (const auto& file : files) {
        std::wstring path = root + file.name;
        HANDLE handle = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    file.attributes ? file.attributes : FILE_ATTRIBUTE_NORMAL, nullptr);
        ASSERT_NE(handle, INVALID_HANDLE_VALUE);
        DWORD written;
        WriteFile(handle, "data", 4, &written, nullptr);
        CloseHandle(handle);
        ASSERT_EQ(GetFileAttributesW(path.c_str()) & file.attributes, file.attributes);
    }
    ASSERT_TRUE(SetFileAttributesW((root + L"\\sub").c_str(), FILE_ATTRIBUTE_HIDDEN));

    EXPECT_EQ(DeleteFolderTree(root), 0u);
    EXPECT_EQ(GetFileAttributesW(root.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_NE(GetFileAttributesW(folder.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(Folders, DeleteFolderTreeRemovesEverythingBelowIt)
{
    std::wstring folder = FreshFolder(L"delete-tree");
    std::wstring root = folder + L"\\tree";
    std::wstring deep = root;
    for (int level = 0; level < 20; ++level)
        deep += L"\\d";
    ASSERT_EQ(CreateDirectoryPath(deep), 0u);
    ASSERT_EQ(CreateDirectoryPath(root + L"\\empty"), 0u);
    for (const std::wstring& path : {root + L"\\plain.txt", root + L"\\read-only.txt", deep + L"\\bottom.txt"}) {
        UniqueHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
        ASSERT_TRUE(file);
    }
    ASSERT_TRUE(SetFileAttributesW((root + L"\\read-only.txt").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    ASSERT_TRUE(SetFileAttributesW((root + L"\\empty").c_str(), FILE_ATTRIBUTE_READONLY));

    EXPECT_EQ(DeleteFolderTree(root), 0u);
    EXPECT_EQ(GetFileAttributesW(root.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_NE(GetFileAttributesW(folder.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(DeleteFolderTree(root), 2u);
}

TEST(Folders, DeleteFolderTreeLeavesWhatItCannotRemove)
{
    std::wstring folder = FreshFolder(L"delete-held");
    std::wstring root = folder + L"\\tree";
    ASSERT_EQ(CreateDirectoryPath(root + L"\\sub"), 0u);
    std::wstring held = root + L"\\sub\\held.txt";
    UniqueHandle file(CreateFileW(held.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    ASSERT_TRUE(file);
    UniqueHandle other(CreateFileW((root + L"\\gone.txt").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    ASSERT_TRUE(other);
    other.Reset();

    EXPECT_EQ(DeleteFolderTree(root), 32u);
    EXPECT_NE(GetFileAttributesW(held.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetFileAttributesW((root + L"\\gone.txt").c_str()), INVALID_FILE_ATTRIBUTES);
    file.Reset();
    EXPECT_EQ(DeleteFolderTree(root), 0u);
}

TEST(Folders, DeleteFolderTreeOnAMissingPath)
{
    std::wstring folder = FreshFolder(L"delete-missing");
    EXPECT_EQ(DeleteFolderTree(folder + L"\\not-there"), 2u);
    EXPECT_NE(GetFileAttributesW(folder.c_str()), INVALID_FILE_ATTRIBUTES);
}
