// The service side of VeyShare: the dispatcher, the control handler and the reported states.
#include "peer/service.h"
#include "runtime/handles.h"
#include "runtime/text.h"

#include <windows.h>
#include <tlhelp32.h>

namespace {

SERVICE_STATUS_HANDLE statusHandle;
HANDLE serviceStop;
int (*serviceRun)(void* stopEvent);
int serviceResult = 1;

void Report(DWORD state, DWORD exitCode = NO_ERROR)
{
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
    status.dwWin32ExitCode = exitCode == 0 ? NO_ERROR : ERROR_SERVICE_SPECIFIC_ERROR;
    status.dwServiceSpecificExitCode = exitCode;
    status.dwWaitHint = state == SERVICE_RUNNING || state == SERVICE_STOPPED ? 0 : 10000;
    SetServiceStatus(statusHandle, &status);
}

DWORD WINAPI Control(DWORD control, DWORD, void*, void*)
{
    if (control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_SHUTDOWN) {
        Report(SERVICE_STOP_PENDING);
        SetEvent(serviceStop);
    }
    return NO_ERROR;
}

void WINAPI ServiceMain(DWORD, wchar_t** argv)
{
    statusHandle = RegisterServiceCtrlHandlerExW(argv[0], Control, nullptr);
    if (!statusHandle)
        return;
    Report(SERVICE_RUNNING);
    serviceResult = serviceRun(serviceStop);
    Report(SERVICE_STOPPED, static_cast<DWORD>(serviceResult));
}

}  // namespace

bool StartedAsService()
{
    UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot)
        return false;
    DWORD self = GetCurrentProcessId();
    DWORD parent = 0;
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot.Get(), &entry); more; more = Process32NextW(snapshot.Get(), &entry)) {
        if (entry.th32ProcessID == self)
            parent = entry.th32ParentProcessID;
    }
    bool service = false;
    for (BOOL more = Process32FirstW(snapshot.Get(), &entry); parent && more;
         more = Process32NextW(snapshot.Get(), &entry)) {
        if (entry.th32ProcessID == parent && EqualsNoCase(entry.szExeFile, L"services.exe"))
            service = true;
    }
    return service;
}

int RunAsService(int (*run)(void* stopEvent), void* stopEvent)
{
    serviceRun = run;
    serviceStop = stopEvent;
    wchar_t name[] = L"";
    SERVICE_TABLE_ENTRYW table[] = {{name, ServiceMain}, {nullptr, nullptr}};
    if (!StartServiceCtrlDispatcherW(table))
        return 1;
    return serviceResult;
}
