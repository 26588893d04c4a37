// VeyShare's entry: set-up in the updater's order, the argument, the three parts (catalogue
// refresher, answerer, file server) until a stop is asked for, and an orderly tear-down.
#include "peer/entry.h"
#include "json/value.h"
#include "peer/answerer.h"
#include "peer/catalogue.h"
#include "peer/config.h"
#include "peer/query_log.h"
#include "peer/refresher.h"
#include "peer/rehasher.h"
#include "peer/server.h"
#include "peer/service.h"
#include "runtime/clock.h"
#include "runtime/crash.h"
#include "runtime/fatal.h"
#include "runtime/handles.h"
#include "runtime/iocp.h"
#include "runtime/logger.h"
#include "runtime/pool.h"
#include "runtime/text.h"

#include <winsock2.h>
#include <windows.h>

#include <cstdio>

namespace {

const wchar_t* shareArgument;
HANDLE consoleStop;

BOOL WINAPI ConsoleControl(DWORD control)
{
    if (control == CTRL_C_EVENT || control == CTRL_BREAK_EVENT || control == CTRL_CLOSE_EVENT) {
        SetEvent(consoleStop);
        return TRUE;
    }
    return FALSE;
}

// Shares until the stop event is set; 0 after a clean stop, 1 when it could not start.
int Share(const ShareConfig& config, HANDLE stopEvent)
{
    IocpStart();
    WSADATA data;
    if (WSAStartup(0x0202, &data) != 0)
        FatalError(kFatalShareWinsock);
    int result = 1;
    {
        Catalogue catalogue(config.root);
        ShareServer server(catalogue);
        QueryLog queryLog;
        Answerer answerer(catalogue, queryLog);
        Refresher refresher(catalogue, config.domains, config.pathAndQuery);
        Rehasher rehasher(catalogue);
        // Running before the first datagram can arrive, so that no burst waits for a later one.
        queryLog.Start("QueryLog", kFatalQueryLogRunning, kFatalQueryLogThread);
        uint32_t error = server.Open(config.port);
        if (error != 0) {
            LogA("Cannot listen on TCP port %u. (0x%08X)", static_cast<unsigned>(config.port), error);
        } else if ((error = answerer.Open(config.port)) != 0) {
            LogA("Cannot receive on UDP port %u. (0x%08X)", static_cast<unsigned>(config.port), error);
        } else {
            LogW(L"Sharing %s on port %u", config.root.c_str(), static_cast<unsigned>(config.port));
            refresher.Start("Refresher", kFatalRefresherRunning, kFatalRefresherThread);
            rehasher.Start("Rehasher", kFatalRehasherRunning, kFatalRehasherThread);
            server.Start();
            WaitForSingleObject(stopEvent, INFINITE);
            LogA("Stopping...");
            result = 0;
        }
        refresher.Stop();
        answerer.Close();
        rehasher.Stop();
        server.Shutdown();
        queryLog.Stop();
    }
    WSACleanup();
    IocpShutdown();
    return result;
}

// The whole life of the program between the argument and the exit code.
int Run(void* stopEvent)
{
    InitPerformanceFrequency();
    InstallCrashReporter();
    PoolInit();
    std::wstring programDirectory = GetDirectoryPart(GetModulePath()) + L"\\";

    wLogger::Create();
    LogA("================================================================");
    LogA("VeyShare version '1.0'");
    LogW(L"Command line is %s", GetCommandLineW());

    int result = 1;
    {
        std::wstring decoded = UrlDecode(shareArgument);
        const wchar_t* cursor = decoded.c_str();
        wJsonRoot<wJsonObject> argument(wJsonObject::Parse(cursor));
        ShareConfig config;
        if (!argument)
            LogW(L"Failed to parse JSON string. (1)\r\n%s", decoded.c_str());
        else if (ReadShareConfig(*argument.Get(), programDirectory, config))
            result = Share(config, stopEvent);
    }
    LogA("VeyShare stopped (%d)", result);
    wLogger::Stop();
    PoolDrain();
    return result;
}

}  // namespace

int ShareMain(int argc, wchar_t** argv)
{
    if (argc < 2) {
        fputs("usage: VeyShare.exe URL-encoded-JSON\n"
              "  {\"domains\": [\"host:port\"], \"pathAndQuery\": \"/manifest.json\", \"httpSharePort\": 8090,"
              " \"root\": \"folder\"}\n",
              stderr);
        return 1;
    }
    shareArgument = argv[1];
    UniqueHandle stopEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!stopEvent)
        return 1;
    if (StartedAsService())
        return RunAsService(Run, stopEvent.Get());
    consoleStop = stopEvent.Get();
    SetConsoleCtrlHandler(ConsoleControl, TRUE);
    return Run(stopEvent.Get());
}
