// Running as a Windows service: how the process knows it was started as one, and the dispatcher.
#pragma once

// True when the parent process is the service control manager (services.exe). Asked first, since
// the dispatcher itself can take seconds to give up in a process that is no service.
bool StartedAsService();
// Connects to the service control manager and runs `run(stopEvent)` as the service's work until it
// returns; a stop request sets the event. The result of `run`, or 1 when no dispatcher connects.
int RunAsService(int (*run)(void* stopEvent), void* stopEvent);
