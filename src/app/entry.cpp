// The entry routine: set-up in a fixed order, the argument, the run, and an orderly tear-down.
#include "app/entry.h"
#include "app/config.h"
#include "json/value.h"
#include "runtime/clock.h"
#include "runtime/crash.h"
#include "runtime/logger.h"
#include "runtime/pool.h"
#include "runtime/text.h"

#include <windows.h>
#include <clocale>

int UpdaterMain(int argc, wchar_t** argv)
{
    if (argc < 2)
        return 0;
    setlocale(LC_ALL, "ko-KR");
    InitPerformanceFrequency();
    InstallCrashReporter();
    PoolInit();
    ProgramDirectory = ComputeProgramDirectory();

    wLogger::Create();
    LogA("================================================================");
    LogA("VeyUpdater version '1.10'");
    LogW(L"Command line is %s", GetCommandLineW());

    std::wstring decoded = UrlDecode(argv[1]);
    const wchar_t* cursor = decoded.c_str();
    wJsonObject* argument = wJsonObject::Parse(cursor);
    if (!argument) {
        LogW(L"Failed to parse JSON string. (1)\r\n%s", decoded.c_str());
    } else {
        std::wstring pathAndQuery;
        updaterConfig = ReadConfig(*argument, pathAndQuery);
        if (!updaterConfig->domains.empty() && !pathAndQuery.empty())
            RunUpdate(pathAndQuery);
        delete updaterConfig;
        updaterConfig = nullptr;
        argument->Release();
    }

    wLogger::Stop();
    ProgramDirectory.clear();
    PoolDrain();
    return 0;
}
