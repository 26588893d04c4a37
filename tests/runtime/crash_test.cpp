// The crash reporter called directly: report lines, names, and concurrent crashes.
#include <gtest/gtest.h>
#include "runtime/crash.h"
#include "runtime/handles.h"
#include "runtime/text.h"
#include "support/test_path.h"

#include <windows.h>
#include <dbghelp.h>
#include <algorithm>
#include <thread>
#include <vector>

namespace {

std::wstring folder;

std::vector<std::wstring> CrashFiles()
{
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW data;
    UniqueFind find(FindFirstFileW((folder + L"\\probe.exe_*").c_str(), &data));
    if (!find)
        return names;
    do
        names.push_back(data.cFileName);
    while (FindNextFileW(find.Get(), &data));
    std::sort(names.begin(), names.end());
    return names;
}

std::string ReadAll(const std::wstring& path)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    std::string data(1 << 16, '\0');
    DWORD read = 0;
    ReadFile(file, &data[0], static_cast<DWORD>(data.size()), &read, nullptr);
    CloseHandle(file);
    data.resize(read);
    return data;
}

class CrashTest : public testing::Test {
protected:
    void SetUp() override
    {
        folder = TestPath(L"crash-test-");
        CreateDirectoryW(folder.c_str(), nullptr);
        for (const auto& name : CrashFiles())
            DeleteFileW((folder + L"\\" + name).c_str());
        wcscpy(crashBasePath, (folder + L"\\probe.exe").c_str());
        InitCrashReporter();
        // A small dump keeps the test quick; the program itself writes full-memory dumps.
        crashDumpType = MiniDumpNormal;
    }
};

}  // namespace

TEST_F(CrashTest, ReportWithoutParametersStillEndsTheSectionWithABlankLine)
{
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = 0xC0000005;
    record.ExceptionFlags = 0;
    record.ExceptionAddress = reinterpret_cast<void*>(0x1234);
    CONTEXT context = {};
    RtlCaptureContext(&context);
    EXCEPTION_POINTERS pointers = {&record, &context};
    EXPECT_EQ(CrashHandler(&pointers), 1);

    std::vector<std::wstring> files = CrashFiles();
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[0].substr(files[0].size() - 4), L".dmp");
    EXPECT_EQ(files[1].substr(files[1].size() - 4), L".log");
    std::wstring threadPart = FormatW(L"_%u.log", GetCurrentThreadId());
    EXPECT_EQ(files[1].substr(files[1].size() - threadPart.size()), threadPart);
    std::string report = ReadAll(folder + L"\\" + files[1]);
    std::string head = "==== ExceptionInfo ====\r\nExceptionCode = 0xC0000005\r\nExceptionFlags = 0x00000000\r\n"
                       "ExceptionRecord = 0x0\r\nExceptionAddress = 0x1234\r\nNumberParameters = 0\r\n\r\n"
                       "==== MemoryInfo ====\r\nPageFaultCount = ";
    EXPECT_EQ(report.substr(0, head.size()), head);
    EXPECT_EQ(report.find("ExceptionInformation"), std::string::npos);
    EXPECT_EQ(report.substr(report.size() - 4), "\r\n\r\n");
}

TEST_F(CrashTest, ConcurrentCrashesOnTwoThreadsGiveTwoPairs)
{
    auto crash = [] {
        EXCEPTION_RECORD record = {};
        record.ExceptionCode = 0xE0564559;
        record.NumberParameters = 2;
        record.ExceptionInformation[0] = 0x10353175;
        record.ExceptionInformation[1] = 0xABCDEF0123ull;
        CONTEXT context = {};
        RtlCaptureContext(&context);
        EXCEPTION_POINTERS pointers = {&record, &context};
        CrashHandler(&pointers);
    };
    std::thread first(crash), second(crash);
    first.join();
    second.join();
    std::vector<std::wstring> files = CrashFiles();
    ASSERT_EQ(files.size(), 4u);
    for (const auto& name : files) {
        if (name.substr(name.size() - 4) != L".log")
            continue;
        std::string report = ReadAll(folder + L"\\" + name);
        EXPECT_NE(report.find("NumberParameters = 2\r\nExceptionInformation[0] = 0x10353175\r\n"
                              "ExceptionInformation[1] = 0xABCDEF0123\r\n\r\n"),
                  std::string::npos);
    }
}
