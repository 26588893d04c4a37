// System functions resolved at their first use. Importing shell32 and user32 makes every run
// load them (with user32's window station and desktop) before its first line, which under Wine
// costs a process tens of milliseconds, while a run that finds nothing to do calls neither.
#pragma once

// The function `name` of the system DLL `library`, loaded from the system folder on the first
// call and kept for the process's life. A function that Windows must have and lacks is a
// FatalError.
void* SystemFunction(const wchar_t* library, const char* name);

template <typename Function>
Function SystemFunctionOf(const wchar_t* library, const char* name)
{
    return reinterpret_cast<Function>(SystemFunction(library, name));
}
