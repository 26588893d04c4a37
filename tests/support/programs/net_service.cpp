// A Windows service for the net.exe tests: reports itself running and ends when told to stop.
// Registered by the tests under names of their own (SERVICE_WIN32_OWN_PROCESS).
#include <windows.h>

namespace {

SERVICE_STATUS_HANDLE statusHandle;
HANDLE stopEvent;

void Report(DWORD state)
{
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
    SetServiceStatus(statusHandle, &status);
}

DWORD WINAPI Handler(DWORD control, DWORD, void*, void*)
{
    if (control == SERVICE_CONTROL_STOP) {
        Report(SERVICE_STOP_PENDING);
        SetEvent(stopEvent);
    }
    return NO_ERROR;
}

void WINAPI ServiceMain(DWORD, wchar_t** argv)
{
    statusHandle = RegisterServiceCtrlHandlerExW(argv[0], Handler, nullptr);
    if (!statusHandle)
        return;
    stopEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    Report(SERVICE_RUNNING);
    WaitForSingleObject(stopEvent, INFINITE);
    Report(SERVICE_STOPPED);
}

}  // namespace

int wmain(int, wchar_t**)
{
    wchar_t name[] = L"";
    SERVICE_TABLE_ENTRYW table[] = {{name, ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : static_cast<int>(GetLastError());
}
