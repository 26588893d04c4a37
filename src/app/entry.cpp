// The entry routine: set-up in a fixed order, the argument, the run, and an orderly tear-down.
#include "app/entry.h"
#include "app/config.h"
#include "app/progress.h"
#include "app/run.h"
#include "json/value.h"
#include "runtime/clock.h"
#include "runtime/crash.h"
#include "runtime/handles.h"
#include "runtime/logger.h"
#include "runtime/pool.h"
#include "runtime/text.h"

#include <windows.h>
#include <clocale>

namespace {

const wchar_t kVersion[] = L"1.10";

// The URL-encoded JSON argument read into the configuration, and the update run with it when it
// names servers and a manifest. The parsed argument and the configuration go before the pool does.
void ReadArgumentAndRun(const wchar_t* encoded, std::wstring programDirectory)
{
    std::wstring decoded = UrlDecode(encoded);
    const wchar_t* cursor = decoded.c_str();
    wJsonRoot<wJsonObject> argument(wJsonObject::Parse(cursor));
    if (!argument) {
        LogW(L"Failed to parse JSON string. (1)\r\n%s", decoded.c_str());
        return;
    }
    const UpdaterConfig config = ReadConfig(*argument.Get(), std::move(programDirectory));
    Progress progress;
    progress.Start(config.progressPipe, kVersion, ConfigurationLine(config));
    if (!config.domains.empty() && !config.pathAndQuery.empty())
        RunUpdate(config, progress);
    progress.Finish();
}

}  // namespace

int UpdaterMain(int argc, wchar_t** argv)
{
    if (argc < 2)
        return 0;
    // The C runtime's locale, for all its categories, is that of the installations this updater
    // serves, so that whatever the runtime converts between narrow and wide text or classifies,
    // it reads as Korean. The program's own text does not go that way (the log, the console and
    // the wire are converted as UTF-8 by the program itself), so the result is not checked: where
    // the name is unknown, as under Wine, the call fails and the "C" locale stays.
    setlocale(LC_ALL, "ko-KR");
    InitPerformanceFrequency();
    InstallCrashReporter();
    PoolInit();
    std::wstring programDirectory = ComputeProgramDirectory();

    wLogger::Create();
    LogA("================================================================");
    LogW(L"VeyUpdater version '%s'", kVersion);
    LogW(L"Command line is %s", GetCommandLineW());
    ReadArgumentAndRun(argv[1], std::move(programDirectory));

    wLogger::Stop();
    PoolDrain();
    return 0;
}
