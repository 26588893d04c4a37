// VeyShare's entry: a console program stopped by Ctrl+C or Ctrl+Break, or a service.
#pragma once

// Runs as a service when the service control manager started the process, otherwise as a console
// program; 0 after a clean stop, 1 when the argument is unusable or a port cannot be held.
int ShareMain(int argc, wchar_t** argv);
